#include "Companion/FileSearch.h"

#include <QDir>
#include <QSet>

#include <algorithm>

namespace {

/// One walk over a directory tree.
class Search
{
public:
    Search(const QStringList &patterns, QList<QFileInfo> &files)
        : m_patterns(patterns)
        , m_files(files)
    {
    }

    void visit(const QString &path)
    {
        const QString canonicalPath = QFileInfo(path).canonicalFilePath();
        // Empty for what does not exist; met again where links lead to one place or round in circles.
        if (canonicalPath.isEmpty() || m_visited.contains(canonicalPath)) {
            return;
        }
        m_visited.insert(canonicalPath);
        for (const auto &entry : sortedEntries(path)) {
            if (entry.isDir()) {
                visit(entry.filePath());
            } else {
                m_files.append(entry);
            }
        }
    }

private:
    QFileInfoList sortedEntries(const QString &path) const
    {
        QFileInfoList entries = QDir(path).entryInfoList(
            m_patterns, QDir::Files | QDir::AllDirs | QDir::NoDotAndDotDot | QDir::CaseSensitive,
            QDir::NoSort);
        // The toolkit sorts by UTF-16 units; the bytes of UTF-8 are in the order of code points.
        std::sort(entries.begin(), entries.end(), [](const auto &left, const auto &right) {
            return left.fileName().toUtf8() < right.fileName().toUtf8();
        });
        return entries;
    }

    const QStringList &m_patterns;
    QList<QFileInfo> &m_files;
    QSet<QString> m_visited;
};

} // namespace

void searchFilesOnPathRecursive(const QString &path, const QStringList &patterns,
                                QList<QFileInfo> &files)
{
    // To the directory listing no pattern means every file.
    if (patterns.isEmpty()) {
        return;
    }
    Search(patterns, files).visit(path);
}
