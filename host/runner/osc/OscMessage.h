// OscMessage: one decoded OSC message as the runner uses it: the address
// and the typed arguments, copied out of liblo's buffers.
//
// Threading: a value type.
#pragma once

#include <QByteArray>
#include <QVector>

struct OscArg
{
    /// The OSC type tag: 'i' 'h' (integers), 'f' 'd' (reals), 's' 'S'
    /// (strings), 'T' 'F' (booleans), 'N' 'I' (nil, impulse), or any other
    /// tag liblo knows (its value is not kept; such an argument is refused
    /// by every address).
    char type = 0;
    qint64 integer = 0; ///< 'i', 'h'
    double real = 0;    ///< 'f', 'd'
    QByteArray text;    ///< 's', 'S'

    bool isInteger() const { return type == 'i' || type == 'h'; }
    bool isReal() const { return type == 'f' || type == 'd'; }
    bool isNumber() const { return isInteger() || isReal(); }
    bool isString() const { return type == 's' || type == 'S'; }
    bool isBool() const { return type == 'T' || type == 'F'; }
};

struct OscMessage
{
    QByteArray path;
    QVector<OscArg> args;

    /// The type tags of the arguments, in order ("iis").
    QByteArray types() const
    {
        QByteArray tags;
        for (const OscArg& arg : args)
            tags += arg.type;
        return tags;
    }
};
