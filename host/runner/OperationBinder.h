// Builds Operation entries from member-function pointers: the argument kinds
// and the converters are deduced from the C++ signature, so the table lists
// each operation once, with no conversion code of its own.
//
//   member("play", "player", &service, &Service::play)
//
// One ArgTraits per C++ argument type picks its generic converter
// (ArgConvert.h); one ResultTraits per return type turns a query's result
// into JSON.
#pragma once

#include "ArgConvert.h"
#include "Operation.h"

#include <QMap>
#include <QVariant>
#include <tuple>
#include <type_traits>
#include <utility>

class QObject;
class ScenePlayer;
class UI_Proc_KELMOR_PlayerTimer_Desktop;
namespace QtAV { class AVPlayer; }

namespace binder {

template <class T> struct ArgTraits; // only the kinds below are callable

#define KELMOR_ARG_TRAITS(Type, Kind, Fn)                                               \
    template <> struct ArgTraits<Type> {                                                \
        static constexpr ArgKind kind = ArgKind::Kind;                                  \
        static bool convert(const QJsonValue& v, Type& out, QString& why) { return argconv::Fn(v, out, why); } \
    };
KELMOR_ARG_TRAITS(int, Int, toInt)
KELMOR_ARG_TRAITS(qint64, Int64, toInt64)
KELMOR_ARG_TRAITS(double, Double, toDouble)
KELMOR_ARG_TRAITS(float, Float, toFloat)
KELMOR_ARG_TRAITS(bool, Bool, toBool)
KELMOR_ARG_TRAITS(QString, String, toString)
KELMOR_ARG_TRAITS(QVariantMap, Record, toRecord)
KELMOR_ARG_TRAITS(QtAV::AVPlayer*, Player, toPlayer)
KELMOR_ARG_TRAITS(UI_Proc_KELMOR_PlayerTimer_Desktop*, Timer, toTimer)
#undef KELMOR_ARG_TRAITS

template <class R> struct ResultTraits;
template <> struct ResultTraits<int> { static QJsonValue toJson(int v) { return v; } };
template <> struct ResultTraits<bool> { static QJsonValue toJson(bool v) { return v; } };
template <> struct ResultTraits<qint64> {
    static QJsonValue toJson(qint64 v) { return static_cast<double>(v); }
};
template <> struct ResultTraits<QVariantMap> {
    static QJsonValue toJson(const QVariantMap& v) { return argconv::variantToJson(v); }
};
template <> struct ResultTraits<QObject*> {
    static QJsonValue toJson(const QObject* v) { return argconv::playerToJson(v); }
};
template <> struct ResultTraits<QtAV::AVPlayer*> {
    static QJsonValue toJson(const QtAV::AVPlayer* v) { return argconv::playerToJson(v); }
};
template <> struct ResultTraits<ScenePlayer*> {
    static QJsonValue toJson(const ScenePlayer* v) { return argconv::scenePlayerToJson(v); }
};
template <> struct ResultTraits<QMap<int, ScenePlayer*>> {
    static QJsonValue toJson(const QMap<int, ScenePlayer*>& v)
    {
        QJsonArray layers;
        for (auto it = v.cbegin(); it != v.cend(); ++it)
            layers.append(it.key());
        return layers;
    }
};

/// Converts every argument (stopping at the first that does not fit), then
/// calls. The caller has checked the count.
template <class R, class... A, std::size_t... I>
InvokeResult invokeWith(const std::function<R(A...)>& call, const QJsonArray& args,
                        const QStringList& names, std::index_sequence<I...>)
{
    std::tuple<A...> values;
    QString why;
    int failed = -1;
    const bool converted =
        (true && ... && (ArgTraits<A>::convert(args.at(int(I)), std::get<I>(values), why)
                         || (failed = int(I), false)));
    InvokeResult result;
    if (!converted) {
        result.ok = false;
        result.error = QStringLiteral("argument %1 (%2): %3")
                           .arg(failed + 1)
                           .arg(names.value(failed), why);
        return result;
    }
    if constexpr (std::is_void_v<R>) {
        std::apply(call, values);
    } else {
        result.hasResult = true;
        result.result = ResultTraits<R>::toJson(std::apply(call, values));
    }
    return result;
}

template <class R, class... A>
Operation makeOperation(const char* name, const char* owner, const char* argNames,
                        std::function<R(A...)> call)
{
    Operation op;
    op.name = QString::fromLatin1(name);
    op.owner = QString::fromLatin1(owner);
    op.kinds = {ArgTraits<A>::kind...};
    op.argNames = QString::fromLatin1(argNames).split(QLatin1Char(','), Qt::SkipEmptyParts);
    Q_ASSERT(op.argNames.size() == int(sizeof...(A)));
    const QStringList names = op.argNames;
    op.invoke = [call, names](const QJsonArray& args) {
        return invokeWith<R, A...>(call, args, names, std::index_sequence_for<A...>{});
    };
    return op;
}

/// A member function of a singleton.
template <class C, class R, class... A>
Operation member(const char* name, const char* owner, const char* argNames, C& (*instance)(),
                 R (C::*method)(A...))
{
    std::function<R(std::decay_t<A>...)> call = [instance, method](std::decay_t<A>... a) -> R {
        return (instance().*method)(a...);
    };
    return makeOperation<R, std::decay_t<A>...>(name, owner, argNames, std::move(call));
}

/// A static member or a free function (also a capture-less lambda given as
/// a function pointer, for operations the runner guards).
template <class R, class... A>
Operation function(const char* name, const char* owner, const char* argNames, R (*fn)(A...))
{
    std::function<R(std::decay_t<A>...)> call = [fn](std::decay_t<A>... a) -> R { return fn(a...); };
    return makeOperation<R, std::decay_t<A>...>(name, owner, argNames, std::move(call));
}

/// A member function of a layer's timer: the layer comes first.
template <class T, class R, class... A>
Operation timerMember(const char* name, const char* argNames, R (T::*method)(A...))
{
    std::function<R(T*, std::decay_t<A>...)> call = [method](T* timer, std::decay_t<A>... a) -> R {
        return (timer->*method)(a...);
    };
    return makeOperation<R, T*, std::decay_t<A>...>(name, "timer", argNames, std::move(call));
}

/// An operation the runner knows but will not call, and why.
inline Operation refused(const char* name, const char* owner, const char* argNames,
                         const char* why)
{
    Operation op;
    op.name = QString::fromLatin1(name);
    op.owner = QString::fromLatin1(owner);
    op.argNames = QString::fromLatin1(argNames).split(QLatin1Char(','), Qt::SkipEmptyParts);
    op.refusal = QString::fromLatin1(why);
    return op;
}

} // namespace binder
