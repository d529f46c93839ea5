// AccessToken: the secret a controller must present before a control
// surface of the runner (live control over TCP today) accepts its commands.
//
// A token is given by the operator (--token) or generated from the system's
// cryptographic random source (128 bits, 32 hex digits). Presented tokens are
// compared in constant time: both sides are hashed (SHA-256) and the digests
// compared byte by byte without an early exit, so the time taken says
// nothing about how much of a guess was right, nor about the token's length.
//
// Threading: a value type; set up before the event loop, read on the GUI
// thread afterwards.
#pragma once

#include <QByteArray>
#include <QString>

class AccessToken
{
public:
    /// Shortest and longest token accepted from the operator.
    static constexpr int kMinLength = 16;
    static constexpr int kMaxLength = 256;

    /// No token: nothing is asked of a controller.
    AccessToken() = default;

    /// A fresh random token (128 bits from QRandomGenerator::system()).
    static AccessToken generate();
    /// The operator's token; false (and `problem`) unless it has kMinLength
    /// to kMaxLength characters out of A-Z a-z 0-9 . _ ~ + / = -.
    static bool fromText(const QString& text, AccessToken& token, QString& problem);

    bool isSet() const { return !m_digest.isEmpty(); }
    /// Whether `presented` is the token (constant time; false when unset).
    bool matches(const QString& presented) const;
    /// The token itself, to be shown once to the operator.
    const QString& text() const { return m_text; }

private:
    explicit AccessToken(const QString& text);

    QString m_text;
    QByteArray m_digest; // SHA-256 of the token's UTF-8 bytes; empty: no token
};
