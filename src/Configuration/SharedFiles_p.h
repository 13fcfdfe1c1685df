#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QFileInfo>
#include <QHash>
#include <QString>
#include <QVector>

/// The configuration files that a walk which writes a tree back meets under several names.
///
/// A link beside the file to which it leads is a subtree of its own, and only one of the two may be
/// what the application has changed. Such a file is written once, and only if all its names would
/// give it the same text.
class SharedFiles
{
public:
    using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// Looks at what a walk that begins with @p entry and its @p element is going to meet. Says
    /// nothing: what is wrong with the directory is told by the walk itself.
    SharedFiles(const Element &element, const QFileInfo &entry);

    /// False, with a warning for the first of them, if two names of one file would give it different
    /// texts.
    bool agree() const;

    /// The subtree that has been written to the file of @p entry, under whatever name. Null if there
    /// is none.
    Element writtenFor(const QFileInfo &entry) const;
    /// To be called when @p subtree has been written to the file of @p entry.
    void noteWritten(const QFileInfo &entry, const Element &subtree);

    /// Stamps @p subtree as the one that was written, so that it still gives the file's text.
    static void copyStamp(const ConfigurationAndProcessDataBase &written,
                          ConfigurationAndProcessDataBase &subtree);

private:
    struct Name
    {
        QFileInfo entry;
        Element subtree;
    };

    bool agree(const QVector<Name> &names) const;

    /// In the order of the walk.
    QVector<QVector<Name>> m_files;
    /// What was written, by canonical path; null before.
    QHash<QString, Element> m_written;
};
