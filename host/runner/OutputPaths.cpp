#include "OutputPaths.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int openDirectory(int at, const QByteArray& name)
{
    int fd = -1;
    do {
        fd = ::openat(at, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

void closeFd(int& fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

QString errnoText(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// Why opening a component failed, for the error line. ELOOP (or ENOTDIR
// for a link in place of a folder) is what O_NOFOLLOW answers for a link.
QString refusal(int code, const QString& shown, bool folder, int at, const QByteArray& name)
{
    struct stat st = {};
    const bool known = ::fstatat(at, name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (known && S_ISLNK(st.st_mode))
        return QStringLiteral("%1 is a symbolic link; links are not followed in the output directory")
            .arg(shown);
    if (known && S_ISDIR(st.st_mode) && !folder)
        return QStringLiteral("%1 is a folder").arg(shown);
    if (code == EEXIST)
        return QStringLiteral("%1 exists; add \"overwrite\": true to replace it").arg(shown);
    if (code == ENOTDIR && folder)
        return QStringLiteral("%1 is not a folder").arg(shown);
    if (code == EISDIR)
        return QStringLiteral("%1 is a folder").arg(shown);
    return QStringLiteral("cannot open %1: %2").arg(shown, errnoText(code));
}

} // namespace

OutputFile::~OutputFile()
{
    closeFd(m_fd);
    closeFd(m_dirFd);
}

int OutputFile::takeFd()
{
    const int fd = m_fd;
    m_fd = -1;
    return fd;
}

void OutputFile::discard()
{
    closeFd(m_fd);
    if (!m_created || m_dirFd < 0)
        return;
    // Only the file this object made goes, even if the name was reused meanwhile.
    const QByteArray name = QFile::encodeName(m_name);
    struct stat st = {};
    if (::fstatat(m_dirFd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0
        && static_cast<unsigned long long>(st.st_dev) == m_device
        && static_cast<unsigned long long>(st.st_ino) == m_inode)
        ::unlinkat(m_dirFd, name.constData(), 0);
    m_created = false;
}

OutputPaths::OutputPaths(const QString& outDir)
    : m_outDir(QDir::cleanPath(QDir(outDir).absolutePath())),
      m_realOutDir(QFileInfo(outDir).canonicalFilePath())
{
    if (m_realOutDir.isEmpty())
        m_realOutDir = m_outDir;
}

bool OutputPaths::componentsOf(const QString& requested, QStringList& parts, QString& why) const
{
    if (requested.isEmpty()) {
        why = QStringLiteral("empty");
        return false;
    }
    if (requested.contains(QChar(0))) {
        why = QStringLiteral("contains a NUL character");
        return false;
    }
    const QString cleaned = QDir::cleanPath(QDir(m_outDir).absoluteFilePath(requested));
    if (QFile::encodeName(cleaned).size() > kMaxPathBytes) {
        why = QStringLiteral("longer than %1 bytes").arg(kMaxPathBytes);
        return false;
    }
    // Inside the directory as given, or as its canonical path names it.
    QString below;
    for (const QString& base : {m_outDir, m_realOutDir}) {
        const QString prefix = base.endsWith(QLatin1Char('/')) ? base : base + QLatin1Char('/');
        if (cleaned.startsWith(prefix)) {
            below = cleaned.mid(prefix.size());
            break;
        }
    }
    if (below.isEmpty()) {
        why = cleaned == m_outDir || cleaned == m_realOutDir
            ? QStringLiteral("names the output directory itself")
            : QStringLiteral("%1 is outside the output directory %2").arg(cleaned, m_outDir);
        return false;
    }
    parts = below.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (parts.isEmpty() || parts.size() > kMaxDepth) {
        why = QStringLiteral("more than %1 folders deep").arg(kMaxDepth);
        return false;
    }
    return true;
}

bool OutputPaths::open(const QString& requested, bool overwrite, OutputFile& file,
                       QString& why) const
{
    QStringList parts;
    if (!componentsOf(requested, parts, why))
        return false;

    int dir = openDirectory(AT_FDCWD, QFile::encodeName(m_realOutDir));
    if (dir < 0) {
        why = QStringLiteral("cannot open the output directory %1: %2").arg(m_outDir, errnoText(errno));
        return false;
    }
    QString shown = m_outDir;
    // Folders: each one opened without following links; missing ones made.
    for (int i = 0; i + 1 < parts.size(); ++i) {
        const QByteArray name = QFile::encodeName(parts.at(i));
        shown += QLatin1Char('/') + parts.at(i);
        int next = openDirectory(dir, name);
        if (next < 0 && errno == ENOENT) {
            if (::mkdirat(dir, name.constData(), 0777) != 0 && errno != EEXIST) {
                why = QStringLiteral("cannot make the folder %1: %2").arg(shown, errnoText(errno));
                closeFd(dir);
                return false;
            }
            next = openDirectory(dir, name);
        }
        if (next < 0) {
            why = refusal(errno, shown, true, dir, name);
            closeFd(dir);
            return false;
        }
        closeFd(dir);
        dir = next;
    }

    // The file: made anew (O_EXCL), or an existing regular file reopened and
    // truncated when overwriting is allowed. O_NONBLOCK so that a FIFO in its
    // place cannot hold the runner; it is refused below anyway.
    const QByteArray name = QFile::encodeName(parts.last());
    shown += QLatin1Char('/') + parts.last();
    const int common = O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    bool created = true;
    int fd = -1;
    do {
        fd = ::openat(dir, name.constData(), common | O_CREAT | O_EXCL, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 && errno == EEXIST && overwrite) {
        created = false;
        do {
            fd = ::openat(dir, name.constData(), common);
        } while (fd < 0 && errno == EINTR);
    }
    if (fd < 0) {
        why = refusal(errno, shown, false, dir, name);
        closeFd(dir);
        return false;
    }
    struct stat st = {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        why = QStringLiteral("%1 is not a regular file").arg(shown);
        ::close(fd);
        closeFd(dir);
        return false;
    }
    if (!created && ::ftruncate(fd, 0) != 0) {
        why = QStringLiteral("cannot truncate %1: %2").arg(shown, errnoText(errno));
        ::close(fd);
        closeFd(dir);
        return false;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);

    closeFd(file.m_fd);
    closeFd(file.m_dirFd);
    file.m_dirFd = dir;
    file.m_fd = fd;
    file.m_name = parts.last();
    file.m_path = shown;
    file.m_created = created;
    file.m_device = static_cast<unsigned long long>(st.st_dev);
    file.m_inode = static_cast<unsigned long long>(st.st_ino);
    return true;
}
