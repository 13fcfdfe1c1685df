#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/// The texts of files as they were before the library rewrites them.
///
/// On a full disk the library puts a cut-off text in place of the former one. Whoever holds the
/// former one can put it back.
class FormerTexts
{
public:
    /// Files that held a cut-off text.
    struct Restoration
    {
        QStringList restored;
        /// The former text could not be written either.
        QStringList lost;
    };

    /// Reads the files. Refuses one that cannot be read.
    explicit FormerTexts(const QStringList &paths);

    /// Files that have been rewritten since, also those with the same text.
    QStringList rewritten() const;
    /// Puts the former text back wherever the new one does not parse.
    Restoration restoreCutOff() const;

private:
    struct File
    {
        QString path;
        QByteArray text;
        quint64 inode;
    };

    QVector<File> m_files;
};

/// The words for what became of cut-off files; empty if there were none.
QString restorationText(const FormerTexts::Restoration &restoration);
