// OscEncoder: OSC packets the runner sends, encoded by liblo.
//
//   /kelmor/reply <json string>    a step's ok/error line, to its sender
//   /kelmor/error <json string>    a refused packet, to its sender:
//                                  {"t", "error": why, "address"?}
//   /kelmor/event/<name> args...   an event or host line, to subscribers
//
// Threading: any (pure functions).
#pragma once

#include "OscMessage.h"

#include <QByteArray>

namespace oscenc {

/// The packet of `message` (liblo's encoding); empty when liblo refuses it.
QByteArray encode(const OscMessage& message);
/// A message with one string argument.
QByteArray encodeString(const QByteArray& path, const QByteArray& text);

} // namespace oscenc
