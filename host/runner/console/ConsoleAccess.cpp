#include "console/ConsoleAccess.h"

#include <QRegularExpression>
#include <QUrl>
#include <cstring>

namespace {

/// Longest Host or Origin header looked at; longer ones are refused.
constexpr std::size_t kMaxHeader = 300;

/// An authority "host[:port]" of a Host header: an IPv6 literal in brackets,
/// or letters, digits, dots and dashes.
bool splitAuthority(const QString& text, QString& host, int& port)
{
    thread_local const QRegularExpression kAuthority(
        QStringLiteral("^(\\[[0-9A-Fa-f:.]+\\]|[A-Za-z0-9.-]+)(?::([0-9]{1,5}))?$"));
    const QRegularExpressionMatch m = kAuthority.match(text);
    if (!m.hasMatch())
        return false;
    host = m.captured(1).toLower();
    if (host.startsWith(QLatin1Char('[')))
        host = host.mid(1, host.size() - 2);
    port = m.captured(2).isEmpty() ? 80 : m.captured(2).toInt();
    return port > 0 && port <= 65535;
}

bool boundedHeader(const char* value)
{
    return value && std::strlen(value) <= kMaxHeader;
}

} // namespace

ConsoleAccess::ConsoleAccess(const QHostAddress& bound, quint16 port, const AccessToken& token)
    : m_bound(bound),
      m_wildcard(bound == QHostAddress(QHostAddress::AnyIPv4) || bound == QHostAddress(QHostAddress::AnyIPv6)
                 || bound == QHostAddress(QHostAddress::Any)),
      m_port(port),
      m_token(token)
{
}

bool ConsoleAccess::hostAllowed(const char* header) const
{
    if (!boundedHeader(header))
        return false;
    QString host;
    int port = 0;
    if (!splitAuthority(QString::fromLatin1(header), host, port) || port != m_port)
        return false;
    if (host == QLatin1String("localhost"))
        return m_wildcard || m_bound.isLoopback();
    QHostAddress address;
    if (!address.setAddress(host))
        return false; // a DNS name: refused (rebinding)
    return m_wildcard || address.isEqual(m_bound, QHostAddress::TolerantConversion);
}

bool ConsoleAccess::originAllowed(const char* origin, const char* host) const
{
    if (!boundedHeader(origin) || !hostAllowed(host))
        return false;
    const QUrl url(QString::fromLatin1(origin), QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != QLatin1String("http") || !url.userInfo().isEmpty()
        || !(url.path().isEmpty() || url.path() == QLatin1String("/")) || url.hasQuery() || url.hasFragment())
        return false;
    QString hostName;
    int hostPort = 0;
    splitAuthority(QString::fromLatin1(host), hostName, hostPort);
    return url.host().toLower() == hostName && url.port(80) == hostPort;
}

ConsoleAccess::Verdict ConsoleAccess::check(const Request& request) const
{
    if (!hostAllowed(request.host))
        return Verdict::BadHost;
    if (request.websocket || request.origin) {
        if (!originAllowed(request.origin, request.host))
            return Verdict::BadOrigin;
    }
    if (!m_token.isSet())
        return Verdict::Allowed;
    if (request.queryToken.isEmpty() && request.cookieToken.isEmpty())
        return Verdict::NeedsToken;
    // Either one right token lets the request in (a stale cookie next to a
    // fresh ?token= must not lock the operator out).
    const bool queryRight = !request.queryToken.isEmpty() && m_token.matches(request.queryToken);
    const bool cookieRight = !request.cookieToken.isEmpty() && m_token.matches(request.cookieToken);
    return queryRight || cookieRight ? Verdict::Allowed : Verdict::WrongToken;
}

ConsoleAccess::Target ConsoleAccess::route(const char* path, QString& file, int& screen)
{
    if (!path || std::strlen(path) > 200)
        return Target::Nothing;
    const QString p = QString::fromLatin1(path);
    if (p == QLatin1String("/")) {
        file = QStringLiteral("index.html");
        return Target::Page;
    }
    if (p == QLatin1String("/ws"))
        return Target::Socket;
    thread_local const QRegularExpression kStill(QStringLiteral("^/still/([0-9]{1,9})\\.png$"));
    const QRegularExpressionMatch still = kStill.match(p);
    if (still.hasMatch()) {
        screen = still.captured(1).toInt();
        return Target::Still;
    }
    // One plain name in the folder itself: no second slash, no leading dot.
    thread_local const QRegularExpression kFile(QStringLiteral("^/([A-Za-z0-9_-][A-Za-z0-9_.-]{0,99})$"));
    const QRegularExpressionMatch name = kFile.match(p);
    if (name.hasMatch() && !name.captured(1).contains(QLatin1String(".."))) {
        file = name.captured(1);
        return Target::File;
    }
    return Target::Nothing;
}

const char* ConsoleAccess::verdictText(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Allowed: return "allowed";
    case Verdict::BadHost: return "the Host header does not name this console";
    case Verdict::BadOrigin: return "the request comes from another origin";
    case Verdict::NeedsToken: return "this console requires the runner's token (?token=TOKEN)";
    case Verdict::WrongToken: return "wrong token";
    }
    return "refused";
}

int ConsoleAccess::verdictStatus(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Allowed: return 200;
    case Verdict::BadHost: return 421;
    case Verdict::BadOrigin: return 403;
    case Verdict::NeedsToken: return 401;
    case Verdict::WrongToken: return 403;
    }
    return 403;
}
