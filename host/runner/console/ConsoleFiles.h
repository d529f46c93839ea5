// ConsoleFiles: the operator console's page (index.html, console.css,
// console.js, ...) read from its folder, and nothing else.
//
// The folder is found once at start: $KELMOR_CONSOLE_DIR when set, else
// ../share/kelmor/console next to the executable (the installed layout),
// else the source tree's host/console-web (a build that was not installed).
// It is opened as a directory descriptor; a file is opened relative to it
// with O_NOFOLLOW, so a symbolic link in the folder is never followed, and
// only a regular file of at most kMaxFileBytes is read. The name itself was
// already limited to one plain path component (ConsoleAccess::route).
//
// Threading: find() and open() on the GUI thread before the server starts;
// read() on any thread (openat on a descriptor that stays open until
// destruction, after the server stopped).
#pragma once

#include <QByteArray>
#include <QString>

class ConsoleFiles
{
public:
    static constexpr qint64 kMaxFileBytes = 4 * 1024 * 1024;

    ConsoleFiles() = default;
    ~ConsoleFiles();
    ConsoleFiles(const ConsoleFiles&) = delete;
    ConsoleFiles& operator=(const ConsoleFiles&) = delete;

    /// The folder to serve (see above); empty, with `tried` listing the
    /// places looked at, when none holds an index.html.
    static QString find(QString& tried);
    /// Opens the folder; false (and `error`) when it cannot be.
    bool open(const QString& folder, QString& error);
    const QString& folder() const { return m_folder; }

    enum class Result { Ok, NotFound, NotAFile, TooLarge };
    /// Reads `name` (one path component) from the folder.
    Result read(const QString& name, QByteArray& bytes) const;
    /// The Content-Type for a file name, by its extension.
    static const char* contentType(const QString& name);

private:
    QString m_folder;
    int m_dirFd = -1; // open from open() to destruction
};
