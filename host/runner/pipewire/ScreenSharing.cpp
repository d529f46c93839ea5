#include "pipewire/ScreenSharing.h"

#include "HostSteps.h"
#include "JsonLine.h"
#include "ScreenService.h"
#include "StepFields.h"

#include <QDebug>

namespace {

constexpr int kMaxNameLength = 128;

/// Why a node name is refused; empty when it is fine.
QString nameProblem(const QString& name)
{
    if (name.trimmed().isEmpty())
        return QStringLiteral("\"name\": empty");
    if (name.size() > kMaxNameLength)
        return QStringLiteral("\"name\": longer than %1 characters").arg(kMaxNameLength);
    for (QChar c : name) {
        if (c.category() == QChar::Other_Control)
            return QStringLiteral("\"name\": control characters are not allowed");
    }
    return QString();
}

} // namespace

ScreenSharing::ScreenSharing(HostSteps& host)
{
    host.addStep(QStringLiteral("publishScreen"),
                 [this](StepSource&, const Step& step) { return publish(step); });
    host.addStep(QStringLiteral("unpublishScreen"),
                 [this](StepSource&, const Step& step) { return unpublish(step); });
}

ScreenSharing::~ScreenSharing()
{
    for (int id : qAsConst(m_published))
        ScreenService::getInstance().unpublishScreen(id);
}

StepOutcome ScreenSharing::publish(const Step& step)
{
    StepFields f(step, {QStringLiteral("screen"), QStringLiteral("name")});
    const int id = f.integer("screen", 0, INT_MIN, INT_MAX, true);
    const QString name = f.string("name", QString(), true);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    const QString problem = nameProblem(name);
    if (!problem.isEmpty())
        return StepOutcome::error(problem);
    ScreenService& screens = ScreenService::getInstance();
    if (!screens.screenById(id))
        return StepOutcome::error(QStringLiteral("unknown screen %1").arg(id));
    for (int other : qAsConst(m_published)) {
        if (other != id && screens.publishedName(other) == name)
            return StepOutcome::error(
                QStringLiteral("\"name\": %1 is already published by screen %2").arg(name).arg(other));
    }
    if (!screens.publishScreen(id, name))
        return StepOutcome::error(
            QStringLiteral("screen %1 cannot be published (not drawn, or PipeWire unusable)").arg(id));
    m_published.insert(id);
    JsonLine extra;
    extra.add(QStringLiteral("name"), name);
    return StepOutcome::ok(extra);
}

StepOutcome ScreenSharing::unpublish(const Step& step)
{
    StepFields f(step, {QStringLiteral("screen")});
    const int id = f.integer("screen", 0, INT_MIN, INT_MAX, true);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    if (!ScreenService::getInstance().unpublishScreen(id))
        return StepOutcome::error(QStringLiteral("screen %1 is not published").arg(id));
    m_published.remove(id);
    return StepOutcome::ok();
}
