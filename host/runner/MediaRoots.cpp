#include "MediaRoots.h"

#include "ArgConvert.h"
#include "Operation.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace mediaroots {
namespace {

QStringList& rootList()
{
    static QStringList list; // GUI thread
    return list;
}

/// The record argument and key through which an operation opens media.
struct MediaArg
{
    const char* op;
    const char* arg;
    const char* key;
};

const MediaArg kMediaArgs[] = {
    {"creatnewlayer", "record", "path"},
    {"changeLayerContent", "record", "videoPath"},
    {"pptPageUpDown", "record", "videoPath"},
};

bool inside(const QString& path, const QString& root)
{
    if (root == QLatin1String("/"))
        return true;
    return path.startsWith(root + QLatin1Char('/'));
}

} // namespace

void setRoots(const QStringList& canonicalRoots)
{
    rootList() = canonicalRoots;
}

const QStringList& roots()
{
    return rootList();
}

bool canonicalRoot(const QString& given, QString& canonical, QString& error)
{
    const QFileInfo info(given);
    canonical = info.canonicalFilePath();
    if (given.isEmpty() || canonical.isEmpty() || !QFileInfo(canonical).isDir()) {
        error = QStringLiteral("--media-root: not an existing folder: %1").arg(given);
        return false;
    }
    return true;
}

bool sourceAllowed(const QString& source, QString& why)
{
    if (rootList().isEmpty() || source.isEmpty())
        return true;
    // A scheme ("av://", "http:", "file:", "lavfi:" ...) or standard input is
    // not a file this check can follow; the engine would open it as such.
    static const QRegularExpression kScheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:"));
    if (source == QLatin1String("-") || kScheme.match(source).hasMatch() || source.contains(QChar(0))) {
        why = QStringLiteral("%1 is not a local file; with --media-root only files inside the media roots open")
                  .arg(source);
        return false;
    }
    const QFileInfo info(QDir::current(), source);
    const QString real = info.canonicalFilePath();
    if (real.isEmpty()) {
        why = QStringLiteral("%1: no such file").arg(source);
        return false;
    }
    if (!QFileInfo(real).isFile()) {
        why = QStringLiteral("%1 is not a file").arg(source);
        return false;
    }
    for (const QString& root : rootList()) {
        if (inside(real, root))
            return true;
    }
    why = QStringLiteral("%1 (%2) is outside every media root").arg(source, real);
    return false;
}

bool stepAllowed(const Operation& op, const QJsonArray& args, QString& why)
{
    if (rootList().isEmpty())
        return true;
    for (const MediaArg& media : kMediaArgs) {
        if (op.name != QLatin1String(media.op))
            continue;
        const int index = op.argNames.indexOf(QLatin1String(media.arg));
        if (index < 0 || index >= args.size())
            continue;
        // The record as the module will read it, so that the source checked
        // is exactly the one opened.
        QMap<QString, QVariant> record;
        QString problem;
        if (!argconv::toRecord(args.at(index), record, problem))
            continue; // the call itself reports the bad argument
        QString source = record.value(QLatin1String(media.key)).toString();
        if (record.value(QStringLiteral("type")).toString() == QLatin1String("ndi")
            && op.name != QLatin1String("pptPageUpDown")) {
            source += QLatin1Char('#');
            source += record.value(QStringLiteral("videoName")).toString();
        }
        if (!sourceAllowed(source, why)) {
            why = QStringLiteral("\"%1\": %2").arg(QLatin1String(media.key), why);
            return false;
        }
    }
    return true;
}

} // namespace mediaroots
