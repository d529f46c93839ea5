#include "EventHub.h"

#include "ArgConvert.h"
#include "Console.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"

#include <QMetaMethod>

namespace {

/// Events kept for waitFor: enough for minutes of positions of a few layers.
constexpr std::size_t kHistory = 4096;

QString printedName(const QByteArray& declared)
{
    // sendPlayerIndex(int index, int bankId): "index" is the layer.
    if (declared == "index")
        return QStringLiteral("layerId");
    return QString::fromLatin1(declared);
}

} // namespace

JsonLine ShowEvent::line() const
{
    JsonLine out;
    out.add(QStringLiteral("t"), static_cast<double>(t));
    out.add(QStringLiteral("event"), name);
    out.append(args);
    return out;
}

EventHub::EventHub(int positionIntervalMs, QObject* parent)
    : QObject(parent), m_positionIntervalMs(positionIntervalMs)
{
}

template <class... A>
void EventHub::watch(UI_Proc_KELMOR_Player_Desktop& service,
                     void (UI_Proc_KELMOR_Player_Desktop::*signal)(A...))
{
    const QMetaMethod method = QMetaMethod::fromSignal(signal);
    const QString name = QString::fromLatin1(method.name());
    QStringList names;
    for (const QByteArray& declared : method.parameterNames())
        names << printedName(declared);
    m_argNames.insert(name, names);
    connect(&service, signal, this, [this, name, names](A... values) {
        record(name, names, QVariantList{QVariant::fromValue(values)...});
    });
}

void EventHub::attach(UI_Proc_KELMOR_Player_Desktop& service)
{
    using S = UI_Proc_KELMOR_Player_Desktop;
    watch(service, &S::sendPlayerIndex);
    watch(service, &S::sendLoadAllComple);
    watch(service, &S::sFadeoutFinished);
    watch(service, &S::sFadeinFinished);
    watch(service, &S::sPositionChanged);
    watch(service, &S::sPlayReady);

    // A signal added to the service later must not go unnoticed.
    const QMetaObject* meta = service.metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() == QMetaMethod::Signal
            && !m_argNames.contains(QString::fromLatin1(method.name())))
            console::note(QStringLiteral("signal %1 of the service is not printed")
                              .arg(QString::fromLatin1(method.methodSignature())));
    }
}

void EventHub::record(const QString& name, const QStringList& argNames, const QVariantList& values)
{
    ShowEvent event;
    event.seq = m_nextSeq++;
    event.t = console::msSinceStart();
    event.name = name;
    for (int i = 0; i < values.size(); ++i)
        event.args.add(argNames.value(i), argconv::variantToJson(values.at(i)));

    m_history.push_back(event);
    if (m_history.size() > kHistory)
        m_history.pop_front();

    if (!thinnedOut(event)) {
        const QByteArray line = event.line().toLine();
        console::writeLine(line);
        emit printed(line);
    }
    emit occurred(event);
}

bool EventHub::thinnedOut(const ShowEvent& event)
{
    if (m_positionIntervalMs <= 0 || event.name != QLatin1String("sPositionChanged"))
        return false;
    const QPair<int, int> layer(event.args.value(QStringLiteral("bankId")).toInt(),
                                event.args.value(QStringLiteral("layerId")).toInt());
    const auto last = m_lastPosition.constFind(layer);
    if (last != m_lastPosition.constEnd() && event.t - last.value() < m_positionIntervalMs)
        return true;
    m_lastPosition.insert(layer, event.t);
    return false;
}

const ShowEvent* EventHub::find(qint64 fromSeq,
                                const std::function<bool(const ShowEvent&)>& match) const
{
    for (const ShowEvent& event : m_history) {
        if (event.seq >= fromSeq && match(event))
            return &event;
    }
    return nullptr;
}

void EventHub::printHostLine(const QString& what, const JsonLine& fields)
{
    JsonLine out;
    out.add(QStringLiteral("t"), static_cast<double>(console::msSinceStart()));
    out.add(QStringLiteral("host"), what);
    out.append(fields);
    const QByteArray line = out.toLine();
    console::writeLine(line);
    emit printed(line);
}
