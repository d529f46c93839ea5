#include "console/ConsoleFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef KELMOR_CONSOLE_SOURCE_DIR
#define KELMOR_CONSOLE_SOURCE_DIR ""
#endif

ConsoleFiles::~ConsoleFiles()
{
    if (m_dirFd >= 0)
        ::close(m_dirFd);
}

QString ConsoleFiles::find(QString& tried)
{
    QStringList candidates;
    const QString fromEnvironment = qEnvironmentVariable("KELMOR_CONSOLE_DIR");
    if (!fromEnvironment.isEmpty()) {
        candidates << fromEnvironment; // named by the operator: that one or nothing
    } else {
        candidates << QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("../share/kelmor/console"));
        if (qstrlen(KELMOR_CONSOLE_SOURCE_DIR) > 0)
            candidates << QString::fromUtf8(KELMOR_CONSOLE_SOURCE_DIR);
    }
    for (const QString& candidate : candidates) {
        if (QFileInfo(QDir(candidate).filePath(QStringLiteral("index.html"))).isFile())
            return QDir(candidate).canonicalPath();
    }
    tried = candidates.join(QStringLiteral(", "));
    return QString();
}

bool ConsoleFiles::open(const QString& folder, QString& error)
{
    if (m_dirFd >= 0) {
        error = QStringLiteral("ConsoleFiles::open: already open");
        return false;
    }
    m_dirFd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_dirFd < 0) {
        error = QStringLiteral("cannot open the console folder %1: %2").arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    m_folder = folder;
    return true;
}

ConsoleFiles::Result ConsoleFiles::read(const QString& name, QByteArray& bytes) const
{
    if (m_dirFd < 0 || name.isEmpty() || name.contains(QLatin1Char('/')) || name.startsWith(QLatin1Char('.')))
        return Result::NotFound;
    const int fd = ::openat(m_dirFd, QFile::encodeName(name).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return errno == ELOOP ? Result::NotAFile : Result::NotFound;
    struct stat info {};
    Result result = Result::Ok;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        result = Result::NotAFile;
    } else if (info.st_size > kMaxFileBytes) {
        result = Result::TooLarge;
    } else {
        bytes.resize(static_cast<int>(info.st_size));
        qint64 done = 0;
        while (done < bytes.size()) {
            const ssize_t got = ::read(fd, bytes.data() + done, static_cast<size_t>(bytes.size() - done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            done += got;
        }
        bytes.resize(static_cast<int>(done)); // a file that shrank meanwhile
    }
    ::close(fd);
    return result;
}

const char* ConsoleFiles::contentType(const QString& name)
{
    const QString suffix = QFileInfo(name).suffix().toLower();
    if (suffix == QLatin1String("html"))
        return "text/html; charset=utf-8";
    if (suffix == QLatin1String("css"))
        return "text/css; charset=utf-8";
    if (suffix == QLatin1String("js"))
        return "text/javascript; charset=utf-8";
    if (suffix == QLatin1String("json"))
        return "application/json";
    if (suffix == QLatin1String("png"))
        return "image/png";
    if (suffix == QLatin1String("svg"))
        return "image/svg+xml";
    if (suffix == QLatin1String("ico"))
        return "image/x-icon";
    return "application/octet-stream";
}
