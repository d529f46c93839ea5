// OscEventFormat: the runner's events and host lines as OSC messages,
// /kelmor/event/<name> with the arguments in their printed order:
//
//   event lines: the signal's arguments, typed as the signal declares them
//   (int 'i', qint64 'h' -- positions --, float 'f', double 'd', bool T/F,
//   strings 's'); "t" is left out.
//   host lines: every field but "t" and "host", typed by its JSON value
//   (whole numbers 'i', or 'h' beyond 32 bits; other numbers 'd'; strings
//   's'; booleans T/F; null 'N'; objects and arrays as their JSON text).
//
// Threading: GUI thread (built once from the service's meta-object).
#pragma once

#include "OscMessage.h"

#include <QByteArray>
#include <QHash>
#include <QString>

struct ShowEvent;

class OscEventFormat
{
public:
    OscEventFormat();

    OscMessage fromEvent(const ShowEvent& event) const;
    /// A printed line that is a host line; false for anything else.
    bool fromHostLine(const QByteArray& line, OscMessage& out) const;

    /// "/kelmor/event/" and `name`, with characters outside A-Z a-z 0-9 _ . -
    /// replaced by '_'.
    static QByteArray eventPath(const QString& name);

private:
    QHash<QString, QByteArray> m_types; // signal -> type tags of its arguments; read only after construction
};
