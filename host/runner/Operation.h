// Operation: one public operation of the module's exported classes as a show
// step can call it: its exact name, its argument kinds in order, and an
// invoker that converts the step's "args" array and calls it.
//
// Threading: GUI thread (every module command runs there).
#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVector>
#include <functional>

enum class ArgKind { Int, Int64, Double, Float, Bool, String, Record, Player, Timer };

/// The kind's name as the help and the error lines write it.
const char* argKindName(ArgKind kind);

struct InvokeResult
{
    bool ok = true;
    QString error;          ///< why an argument did not convert (ok false)
    bool hasResult = false; ///< the operation returns a value
    QJsonValue result;
};

struct Operation
{
    QString name;         ///< exact name; timer operations are "timer.<name>"
    QString owner;        ///< "service", "registry" or "timer"
    QVector<ArgKind> kinds;
    QStringList argNames; ///< one per argument, for help and error lines
    /// Not empty: the operation exists but a show cannot run it (why).
    QString refusal;
    std::function<InvokeResult(const QJsonArray&)> invoke;

    /// "name(argName: kind, ...)".
    QString signature() const;
};
