// ConsoleAccess: whether one HTTP request (or WebSocket upgrade) may reach the
// operator console, decided from its headers alone.
//
// - Host: must name the served address and port: the address the console
//   is bound to, "localhost" when that is a loopback address, or, for a
//   wildcard bind (0.0.0.0, ::), any IP literal. A DNS name that is not
//   "localhost" is refused, so that a page of a foreign site whose name was
//   rebound to this machine cannot reach the console (DNS rebinding).
// - Origin: a WebSocket must carry one, and it must be this very origin
//   (http://<the Host header>); any request carrying a foreign Origin is
//   refused too. So no other page open in the operator's browser can drive
//   the show.
// - Token: when one is in force (always beyond loopback), every request
//   must present it, as the "token" query parameter or the console's cookie.
// - Paths: only "/" (the page), plain file names of the console's folder
//   ("/console.js"), "/still/<screen>.png" and "/ws" are served; anything
//   with another slash, a dot first, or other characters is not.
//
// Header values are parsed with QUrl / QHostAddress (the patterns are one
// per thread); headers longer than 300 bytes are refused unread.
//
// Threading: immutable after construction; any thread (civetweb's workers
// call it concurrently).
#pragma once

#include "AccessToken.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>

class ConsoleAccess
{
public:
    /// Name of the cookie that carries the token once the page was opened
    /// with ?token=.
    static constexpr const char* kCookieName = "kelmor_console";

    /// `bound`: the address the console listens on (may be a wildcard);
    /// `port`: the port it listens on; `token`: unset when none is in force.
    ConsoleAccess(const QHostAddress& bound, quint16 port, const AccessToken& token);

    enum class Verdict {
        Allowed,
        BadHost,      ///< 421/403: Host names another server
        BadOrigin,    ///< 403: foreign or missing Origin
        NeedsToken,   ///< 401: no token presented
        WrongToken    ///< 403: the token presented is wrong
    };

    /// The request's relevant headers (null: absent).
    struct Request
    {
        const char* host = nullptr;
        const char* origin = nullptr;
        QString queryToken;   ///< the "token" query parameter; empty: none
        QString cookieToken;  ///< the console cookie; empty: none
        bool websocket = false;
    };
    Verdict check(const Request& request) const;

    bool hostAllowed(const char* host) const;
    /// `origin` is this console's own origin for a request sent to `host`.
    bool originAllowed(const char* origin, const char* host) const;
    bool tokenRequired() const { return m_token.isSet(); }

    /// What a path asks for.
    enum class Target { Page, File, Still, Socket, Nothing };
    /// `path`: the request's path as civetweb gives it (decoded, without the
    /// query). `file` gets the file name (Page: "index.html"); `screen` the
    /// still's screen id.
    static Target route(const char* path, QString& file, int& screen);

    static const char* verdictText(Verdict verdict);
    static int verdictStatus(Verdict verdict);

private:
    const QHostAddress m_bound;
    const bool m_wildcard;
    const quint16 m_port;
    const AccessToken m_token;
};
