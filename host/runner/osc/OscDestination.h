// OscDestination: an --osc-send HOST:PORT given by the operator. HOST is an
// IPv4 address, an IPv6 address in brackets ([::1]:9000) or a host name,
// looked up once when the runner starts (the lookup may wait for the
// resolver; it happens before the show runs).
//
// Threading: any.
#pragma once

#include "osc/OscSocket.h"

#include <QString>

/// false (and `problem`) when `text` is not HOST:PORT or HOST has no address.
bool parseOscDestination(const QString& text, OscPeer& out, QString& problem);
