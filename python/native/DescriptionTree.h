#pragma once

#include "native/Leaf.h"

#include <QVector>

/// A process description, a file or a folder of files with one memory, as it was read from the disk.
struct DescriptionTree
{
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    QString key;            ///< memory key
    quint32 regionSize = 0; ///< bytes of the whole region
    bool isDoubleBuffered = false;

    /// Throws a Failure that names the path, the reason and what to do.
    static DescriptionTree read(const QString &path);
    /// Of a tree that was read already; @p path is for the Failure.
    static DescriptionTree of(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root,
                              const QString &path);
    /// Throws a Failure if nothing is at the path, or nothing that may be read.
    static void requireReadable(const QString &path);

    /// All leaves, in the order of their display positions.
    QVector<Leaf> leaves() const;
};
