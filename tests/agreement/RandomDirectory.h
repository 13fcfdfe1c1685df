#pragma once

#include "Configuration/RandomConfiguration.h"

#include <QList>
#include <QSet>
#include <QStringList>

/// Makes instance directories: nested folders with descriptions of both kinds, most of which are in
/// order, and all that may lie about on a disk beside them.
///
/// The same seed makes the same directory, at as many places as one likes.
class RandomDirectory
{
public:
    /// What lies in a directory besides folders and files.
    enum class Oddities {
        None,               ///< links only to files outside, each to one of its own, and to nothing
        LinksToFiles,       ///< also to files of the directory
        LinksToDirectories, ///< also to folders inside and outside, around in circles too
        NoFiles,            ///< pipes under fitting names, and links to them and to devices
    };

    RandomDirectory(quint32 seed, Oddities oddities, const QString &memoryKey);

    /// The directory comes to lie at @p path; what its links lead to, beside it.
    void writeTo(const QString &path) const;
    /// Gives back the rights to remove what writeTo() made.
    void releaseAt(const QString &path) const;

    /// All folders, relative to the directory; "." is the directory itself.
    const QStringList &folders() const { return m_folders; }
    /// All files, relative to the directory, links and pipes too.
    const QStringList &files() const { return m_files; }

private:
    enum class Kind { File, Folder, Link, Pipe };

    struct Entry
    {
        Kind kind;
        QString path;
        QByteArray content; ///< of a link: where it leads
        int mode = 0;       ///< 0 leaves it as it is
    };

    bool odd(int inSoMany) { return !m_isInOrder && m_random.once(inSoMany); }
    void fill(const QString &folder, int depth);
    void addFolder(const QString &parent, int depth);
    void addFolderDescription(const QString &folder);
    void addDescription(const QString &folder);
    void addLink(const QString &folder, int depth);
    void addPipe(const QString &folder);
    bool add(const Entry &entry);

    QString stem();
    QString ending();
    QByteArray configuration();
    QByteArray processDescription();
    QByteArray spoilt(const QByteArray &text);
    QJsonObject processNode(int depth);
    QJsonObject processLeaf();

    RandomConfiguration m_random;
    Oddities m_oddities;
    QString m_memoryKey;
    bool m_isInOrder;
    int m_kinds; ///< 0: configurations, 1: process descriptions, 2: both
    bool m_hasDoubleBuffer;
    QList<Entry> m_entries;
    QSet<QString> m_taken;
    QStringList m_folders;
    QStringList m_files;
};
