// OutputPaths: the files that snapshot and record steps write, confined to
// the output directory (--out).
//
// A step's path is taken relative to the output directory (an absolute path
// must name a place inside it) and cleaned of "." and ".." lexically; a path
// that leaves the directory is refused. The file is then reached by walking
// the directory tree from the output directory one component at a time with
// O_NOFOLLOW, so a symbolic link anywhere below the output directory is
// refused (the output directory itself may be reached through links), and a
// link swapped in after the check cannot redirect the write: the file is
// written through the descriptor opened here. Missing folders below the
// output directory are made. A file that exists is refused unless the step
// allows overwriting it; only a regular file is ever overwritten.
//
// Threading: GUI thread. The object only holds the directory's names.
#pragma once

#include <QString>
#include <QStringList>

/// One file opened for writing inside the output directory. Closes its
/// descriptors when destroyed; discard() removes a file it created.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    /// The file's absolute path (cleaned), for messages and replies.
    const QString& path() const { return m_path; }
    /// Hands the descriptor over to the caller (who closes it).
    int takeFd();
    /// Removes the file when this object created it and it is still the same
    /// file (a failed write leaves nothing behind). Closes the descriptor.
    void discard();

private:
    friend class OutputPaths;
    int m_dirFd = -1;      // the file's folder, opened with O_NOFOLLOW
    int m_fd = -1;         // the file, open for writing
    QString m_name;        // the file's name in its folder
    QString m_path;
    bool m_created = false; // made by this open (O_EXCL), not overwritten
    unsigned long long m_device = 0, m_inode = 0; // identity of what was opened
};

class OutputPaths
{
public:
    /// Paths deeper than this (components below the output directory) are refused.
    static constexpr int kMaxDepth = 32;
    /// Paths longer than this (bytes, after cleaning) are refused.
    static constexpr int kMaxPathBytes = 4096;

    /// `outDir`: the output directory, which exists.
    explicit OutputPaths(const QString& outDir);

    /// Opens `requested` for writing (truncated when overwritten). False with
    /// `why` (a phrase for the error line) when the path is empty, leaves the
    /// output directory, goes through a symbolic link, names a folder or
    /// something that is not a regular file, exists while `overwrite` is false,
    /// or cannot be made.
    bool open(const QString& requested, bool overwrite, OutputFile& file, QString& why) const;

private:
    /// The path's components below the output directory; false with `why`.
    bool componentsOf(const QString& requested, QStringList& parts, QString& why) const;

    QString m_outDir;       // absolute, cleaned, as given
    QString m_realOutDir;   // its canonical path
};
