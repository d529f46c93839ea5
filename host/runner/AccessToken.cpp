#include "AccessToken.h"

#include <QCryptographicHash>
#include <QRandomGenerator>

namespace {

QByteArray digestOf(const QString& text)
{
    return QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha256);
}

bool allowedCharacter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') || u == '.' || u == '_'
        || u == '~' || u == '+' || u == '/' || u == '=' || u == '-';
}

} // namespace

AccessToken::AccessToken(const QString& text) : m_text(text), m_digest(digestOf(text)) {}

AccessToken AccessToken::generate()
{
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    QByteArray bytes(reinterpret_cast<const char*>(words), sizeof words);
    return AccessToken(QString::fromLatin1(bytes.toHex()));
}

bool AccessToken::fromText(const QString& text, AccessToken& token, QString& problem)
{
    if (text.size() < kMinLength || text.size() > kMaxLength) {
        problem = QStringLiteral("--token: %1 to %2 characters, got %3")
                      .arg(kMinLength)
                      .arg(kMaxLength)
                      .arg(text.size());
        return false;
    }
    for (const QChar c : text) {
        if (!allowedCharacter(c)) {
            problem = QStringLiteral("--token: only A-Z a-z 0-9 . _ ~ + / = - may be used");
            return false;
        }
    }
    token = AccessToken(text);
    return true;
}

bool AccessToken::matches(const QString& presented) const
{
    if (!isSet())
        return false;
    const QByteArray given = digestOf(presented);
    // Every byte is looked at whatever the earlier ones were.
    unsigned difference = 0;
    for (int i = 0; i < m_digest.size(); ++i)
        difference |= static_cast<unsigned char>(m_digest.at(i)) ^ static_cast<unsigned char>(given.at(i));
    return difference == 0;
}
