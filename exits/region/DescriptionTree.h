#pragma once

#include "region/FollowedLeaf.h"
#include "regions/DescribedRegion.h"

#include <QVector>

/// A process description, a file or a folder of files with one memory, read from the disk.
struct DescriptionTree : DescribedRegion
{
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    /// All leaves in the order of their display positions. Those of files that do not parse are missing.
    QVector<FollowedLeaf> leaves;

    /// Throws a Refusal that names the path, the reason and what to do.
    static DescriptionTree read(const QString &path);
};
