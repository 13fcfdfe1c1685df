#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

/// The files of a description on their way from one machine to another.
struct DescriptionBundle
{
    struct File
    {
        QString name; ///< below the folder, with '/' between folders
        QByteArray content;
    };

    QVector<File> files;
    bool isFolder = false; ///< else there is one file

    static constexpr int sm_mostFiles = 1000;
    static constexpr int sm_mostBytes = 16 * 1024 * 1024;

    /// Of a file, or the descriptions in a folder. Throws a Refusal.
    static DescriptionBundle read(const QString &path);
    /// Why this is no description that may be written here; empty if it is one.
    QString problem() const;
    /// Makes @p folder, which must not be there or be empty, with all files or not at all. @p key: what they
    /// have to describe. Gives the path of the description; throws a Refusal.
    QString write(const QString &folder, const QString &key) const;
};
