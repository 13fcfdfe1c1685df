#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "native/ConfigurationRules.h"

#include <QFileInfo>
#include <QStringList>
#include <QVector>

#include <mutex>

/// What a write-back left in a file.
struct ConfigurationStamp
{
    QString instanceName;
    QString modifiedBy;
    QString lastModified;
};

/// A configuration in memory, an instance directory or one file, with the way back to its files.
///
/// The tree takes no lock of its own: every operation here excludes the others. What fails throws a Failure and
/// leaves tree and files as they were.
class OpenConfiguration
{
public:
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    explicit OpenConfiguration(const QString &path);

    const QString &path() const { return m_path; }
    /// Of the leaves, in the order of display.
    const QStringList &urls() const { return m_urls; }
    /// Of the leaf, or of the column of the cell, that the URL names.
    ConfigurationRules rules(const QString &url) const;
    /// Invalid where nothing was entered.
    QVariant value(const QString &url) const;
    /// The checked write of the library. @p value is one that rules() have let in.
    SetValueStatus set(const QString &url, const QVariant &value);

    struct Table
    {
        QVector<ConfigurationRules> columns;
        QStringList titles;
        QVariantList rows; ///< each a list with a value a column
        int leastRows = 0;
        int mostRows = 0;    ///< -1: any number
        bool isFlat = false; ///< the cells of its one column are no lists
    };
    /// A Failure says what keeps it from being a table.
    Table table(const QString &url) const;

    /// Stamps and writes the files in which something was changed.
    QVector<ConfigurationStamp> save();

private:
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// One file of a configuration, and what it takes to write it back alone.
    struct File
    {
        QString url; ///< of its tree in the whole; empty if it is the whole
        QFileInfo entry;
        QString instanceName;
        BaseClassSharedPointer
            directory; ///< the node that holds the tree under the name of the file
        BaseClassSharedPointer root;
        bool isChanged = false;
    };

    void openFile();
    void openDirectory();
    void listFiles(const QFileInfo &directory, const QString &url, QStringList &entered);
    QSharedPointer<ConfigurationDataValue> leafAt(const QString &url) const;
    Table tableOf(const QString &url) const;
    void requireKeepsValues(const File &file) const;
    QVector<ConfigurationStamp> write(const File &file) const;

    mutable std::mutex m_mutex;
    QString m_path;
    QString m_objectName;
    BaseClassSharedPointer m_root;
    QStringList m_urls;
    QVector<File> m_files;
};
