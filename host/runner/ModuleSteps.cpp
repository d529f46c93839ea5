#include "ModuleSteps.h"

#include "MediaRoots.h"
#include "OperationTable.h"

#include <QJsonArray>

namespace {

QString signaturesOf(const QVector<const Operation*>& ops)
{
    QStringList signatures;
    for (const Operation* op : ops)
        signatures << op->signature();
    return signatures.join(QStringLiteral(" or "));
}

QString argumentCount(int n)
{
    return n == 1 ? QStringLiteral("1 argument") : QStringLiteral("%1 arguments").arg(n);
}

} // namespace

bool runModuleStep(const Step& step, StepOutcome& outcome)
{
    const QVector<const Operation*> ops = findOperations(step.op);
    if (ops.isEmpty())
        return false;

    for (auto it = step.body.begin(); it != step.body.end(); ++it) {
        if (it.key() != QLatin1String("op") && it.key() != QLatin1String("args")) {
            outcome = StepOutcome::error(
                QStringLiteral("unknown key \"%1\" (a module step has \"op\" and \"args\")").arg(it.key()));
            return true;
        }
    }
    const QJsonValue argsValue = step.body.value(QLatin1String("args"));
    if (!argsValue.isUndefined() && !argsValue.isArray()) {
        outcome = StepOutcome::error(QStringLiteral("\"args\" must be an array"));
        return true;
    }
    const QJsonArray args = argsValue.toArray();

    const Operation* chosen = nullptr;
    for (const Operation* op : ops) {
        if (op->argNames.size() == args.size()) {
            chosen = op;
            break;
        }
    }
    if (!chosen) {
        outcome = StepOutcome::error(QStringLiteral("%1 takes %2, got %3: %4")
                                         .arg(step.op, argumentCount(ops.first()->argNames.size()))
                                         .arg(args.size())
                                         .arg(signaturesOf(ops)));
        if (ops.size() > 1)
            outcome.problem = QStringLiteral("no form of %1 takes %2: %3")
                                  .arg(step.op, argumentCount(args.size()), signaturesOf(ops));
        return true;
    }
    if (!chosen->refusal.isEmpty()) {
        outcome = StepOutcome::error(
            QStringLiteral("%1 is not available from a show: %2").arg(step.op, chosen->refusal));
        return true;
    }

    // With --media-root, media outside the roots is refused and the step not run.
    QString mediaProblem;
    if (!mediaroots::stepAllowed(*chosen, args, mediaProblem)) {
        outcome = StepOutcome::error(QStringLiteral("%1: %2").arg(step.op, mediaProblem));
        return true;
    }

    const InvokeResult result = chosen->invoke(args);
    if (!result.ok) {
        outcome = StepOutcome::error(QStringLiteral("%1: %2").arg(step.op, result.error));
        return true;
    }
    JsonLine extra;
    if (result.hasResult)
        extra.add(QStringLiteral("result"), result.result);
    outcome = StepOutcome::ok(extra);
    return true;
}
