// The open output screens and the look-up from a screen-identity record.
#include "ScreenService.h"

#include <QDebug>

ScreenService& ScreenService::getInstance()
{
    static ScreenService instance;
    return instance;
}

ScreenService::ScreenService(QObject* parent)
    : QObject(parent)
{
}

ScreenService::~ScreenService()
{
    qDeleteAll(m_widgets);
}

namespace {

bool sameIdentity(const ScreenWidget* w, int id, int type, const QString& guid)
{
    return w->screenId() == id && w->screenType() == type && w->clientGuid() == guid;
}

} // namespace

ScreenWidget* ScreenService::openScreen(const ScreenInfo& info)
{
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (sameIdentity(w, info.screenId, info.screenType, info.clientGuid))
            return w;
    }
    auto* widget = new ScreenWidget(info);
    m_widgets.append(widget);
    qDebug() << "openScreen" << info.screenId << "type" << info.screenType << info.geometry
             << (info.offscreen ? "offscreen" : "windowed");
    emit screenOpened(info.screenId);
    return widget;
}

bool ScreenService::closeScreen(int screenId, int screenType, const QString& clientGuid)
{
    for (int i = 0; i < m_widgets.size(); ++i) {
        ScreenWidget* w = m_widgets.at(i);
        if (sameIdentity(w, screenId, screenType, clientGuid)) {
            m_widgets.removeAt(i);
            delete w; // the render objects it hosted are not its own
            emit screenClosed(screenId);
            return true;
        }
    }
    qDebug() << "closeScreen ignored: no open screen" << screenId << screenType << clientGuid;
    return false;
}

void ScreenService::closeAllScreens()
{
    while (!m_widgets.isEmpty()) {
        ScreenWidget* w = m_widgets.first();
        closeScreen(w->screenId(), w->screenType(), w->clientGuid());
    }
}

ScreenWidget* ScreenService::getScreenWidget(QMap<QString, QVariant> record)
{
    const int id = record.value(QStringLiteral("screenId")).toInt();
    const int type = record.value(QStringLiteral("screenType")).toInt();
    const QString guid = record.value(QStringLiteral("clientGuid")).toString();
    ScreenWidget* sameId = nullptr;
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (sameIdentity(w, id, type, guid))
            return w;
        if (!sameId && w->screenId() == id)
            sameId = w;
    }
    return sameId;
}

QMap<int, void*> ScreenService::getListOutput()
{
    QMap<int, void*> outputs;
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (!outputs.contains(w->screenId()))
            outputs.insert(w->screenId(), w);
    }
    return outputs;
}

QList<ScreenWidget*> ScreenService::widgetList() const
{
    return m_widgets;
}
