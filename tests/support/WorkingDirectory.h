#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

#include <sys/stat.h>

/// A directory of its own for a test, and the current one as long as it lives: relative paths lead
/// into it, and a message with a relative path cannot be mistaken for one with an absolute path.
class WorkingDirectory
{
public:
    WorkingDirectory() : m_former(QDir::currentPath())
    {
        if (!m_directory.isValid() || !QDir::setCurrent(m_directory.path())) {
            qFatal("no directory of one's own");
        }
    }
    ~WorkingDirectory() { QDir::setCurrent(m_former); }

    WorkingDirectory(const WorkingDirectory &) = delete;
    WorkingDirectory &operator=(const WorkingDirectory &) = delete;

private:
    QTemporaryDir m_directory;
    QString m_former;
};

inline void makeDirectory(const QString &path)
{
    if (!QDir().mkpath(path)) {
        qFatal("cannot make %s", qPrintable(path));
    }
}

/// Makes the directories on the way as well.
inline void writeFile(const QString &path, const QByteArray &content)
{
    makeDirectory(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be opened)");
}

/// @p target is relative to the directory of the link.
inline void makeLink(const QString &path, const QString &target)
{
    if (!QFile::link(target, path)) {
        qFatal("cannot link %s", qPrintable(path));
    }
}

/// A file as a stranger sees it: another inode means that it was replaced.
struct FileState
{
    QByteArray content;
    quint64 inode;
    qint64 seconds;
    qint64 nanoseconds;

    bool operator==(const FileState &other) const
    {
        return content == other.content && inode == other.inode && seconds == other.seconds
               && nanoseconds == other.nanoseconds;
    }
    bool operator!=(const FileState &other) const { return !(*this == other); }
};

inline FileState stateOf(const QString &path)
{
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0) {
        qFatal("cannot look at %s", qPrintable(path));
    }
    return {readFile(path), static_cast<quint64>(status.st_ino),
            static_cast<qint64>(status.st_mtim.tv_sec),
            static_cast<qint64>(status.st_mtim.tv_nsec)};
}

/// Everything at and below @p path, hidden entries too. Directories that links lead to are not
/// entered.
inline QMap<QString, FileState> statesBelow(const QString &path)
{
    QMap<QString, FileState> states;
    const auto entries = QDir(path).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System
                                                  | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        states.insert(entry.filePath(), stateOf(entry.filePath()));
        if (entry.isDir() && !entry.isSymLink()) {
            const auto below = statesBelow(entry.filePath());
            for (auto state = below.cbegin(); state != below.cend(); ++state) {
                states.insert(state.key(), state.value());
            }
        }
    }
    return states;
}
