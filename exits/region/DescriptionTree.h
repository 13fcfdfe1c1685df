#pragma once

#include "region/FollowedLeaf.h"

#include <QVector>

/// A process description, a file or a folder of files with one memory, read from the disk.
struct DescriptionTree
{
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    /// All leaves in the order of their display positions. Those of files that do not parse are missing.
    QVector<FollowedLeaf> leaves;
    QString key;            ///< memory key
    quint32 regionSize = 0; ///< bytes of the whole region
    bool isDoubleBuffered = false;

    /// Throws a Refusal that names the path, the reason and what to do.
    static DescriptionTree read(const QString &path);

    /// What tells whether the files at @p path are those that were read: names, sizes and times.
    static QString stampOf(const QString &path);
};
