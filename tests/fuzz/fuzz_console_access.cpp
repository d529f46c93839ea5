// Fuzz target: the operator console's request checks. The input holds the
// headers and path of one request, one per line (Host, Origin, path, query,
// Cookie) after a first byte that picks the bound address, the token and
// whether it is a WebSocket upgrade. The query and cookie are read with
// civetweb's own readers, as the server does. Nothing may crash, leak or
// hang, and nothing outside the console's folder may ever be routed to.
#include "console/ConsoleAccess.h"

#include <QByteArray>
#include <QList>

#include <civetweb.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

const ConsoleAccess& access(int which)
{
    static AccessToken token = [] {
        AccessToken t;
        QString problem;
        AccessToken::fromText(QStringLiteral("fuzz-token-0123456789"), t, problem);
        return t;
    }();
    static const ConsoleAccess loopback(QHostAddress(QStringLiteral("127.0.0.1")), 8080, AccessToken());
    static const ConsoleAccess wildcard(QHostAddress(QStringLiteral("0.0.0.0")), 8080, token);
    static const ConsoleAccess v6(QHostAddress(QStringLiteral("::1")), 8080, token);
    switch (which % 3) {
    case 0: return loopback;
    case 1: return wildcard;
    default: return v6;
    }
}

QString readToken(const QByteArray& text, bool cookie)
{
    char buffer[512];
    const int got = cookie ? mg_get_cookie(text.constData(), ConsoleAccess::kCookieName, buffer, sizeof buffer)
                           : mg_get_var(text.constData(), std::size_t(text.size()), "token", buffer, sizeof buffer);
    return got > 0 ? QString::fromLatin1(buffer, got) : QString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 4096)
        return 0;
    const int mode = data[0];
    const QList<QByteArray> fields = QByteArray(reinterpret_cast<const char*>(data) + 1, int(size) - 1).split('\n');
    const QByteArray host = fields.value(0), origin = fields.value(1), path = fields.value(2);
    const QByteArray query = fields.value(3), cookie = fields.value(4);

    const ConsoleAccess& rules = access(mode);
    ConsoleAccess::Request request;
    request.host = fields.size() > 0 && !(mode & 8) ? host.constData() : nullptr;
    request.origin = fields.size() > 1 && !(mode & 16) ? origin.constData() : nullptr;
    request.queryToken = readToken(query, false);
    request.cookieToken = readToken(cookie, true);
    request.websocket = (mode & 4) != 0;
    const ConsoleAccess::Verdict verdict = rules.check(request);
    if (verdict == ConsoleAccess::Verdict::Allowed && !rules.hostAllowed(request.host))
        __builtin_trap(); // let in with a Host that is not this console's
    if (verdict == ConsoleAccess::Verdict::Allowed && request.websocket
        && !rules.originAllowed(request.origin, request.host))
        __builtin_trap(); // a WebSocket from another origin
    if (ConsoleAccess::verdictStatus(verdict) < 200 || std::strlen(ConsoleAccess::verdictText(verdict)) == 0)
        __builtin_trap();

    QString file;
    int screen = -1;
    switch (ConsoleAccess::route(path.constData(), file, screen)) {
    case ConsoleAccess::Target::Page:
    case ConsoleAccess::Target::File:
        if (file.isEmpty() || file.contains(QLatin1Char('/')) || file.startsWith(QLatin1Char('.'))
            || file.contains(QLatin1String("..")) || file.contains(QLatin1Char('\\')))
            __builtin_trap(); // a name that could leave the folder
        break;
    case ConsoleAccess::Target::Still:
        if (screen < 0)
            __builtin_trap();
        break;
    default:
        break;
    }
    return 0;
}
