#include "Companion/FileSearch.h"

#include "Companion/DirectoryVisits_p.h"

#include <QDir>

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

    void visit(const QFileInfo &directory)
    {
        if (!m_visits.enter(directory)) {
            m_visits.tellPassedOver(directory);
            return;
        }
        const QFileInfoList entries = sortedEntries(directory.filePath());
        for (const auto &entry : entries) {
            if (entry.isDir()) {
                visit(entry);
            } else if (entry.isFile()) {
                m_files.append(entry);
            }
        }
        m_visits.leave();
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
    DirectoryVisits m_visits;
};

} // namespace

void searchFilesOnPathRecursive(const QString &path, const QStringList &patterns,
                                QList<QFileInfo> &files)
{
    // To the directory listing no pattern means every file.
    if (patterns.isEmpty()) {
        return;
    }
    Search(patterns, files).visit(QFileInfo(path));
}
