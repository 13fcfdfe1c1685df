#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Inspection/RegionInspection.h"

#include <QString>

/// What a process description says of the region of its memory key, and whether the region that is there is that
/// one: for programs that follow a region through its end, its return and a changed description.
struct DescribedRegion
{
    QString path;           ///< of the description, a file or a folder
    QString key;            ///< memory key
    quint32 regionSize = 0; ///< bytes of the whole region
    bool isDoubleBuffered = false;

    /// As the root of the description at @p path gives it; none, with a line in @p problem, if that describes no
    /// memory.
    static DescribedRegion of(const ConfigurationAndProcessDataBase &root, const QString &path,
                              QString &problem);

    /// Whether there is nothing yet behind the key that could be looked at. A name that no region can have is not
    /// missing: nobody will ever make it.
    static bool isMissing(const RegionInspection &region, const QString &key);

    /// Whether somebody has published into @p region, or something else than a set is wrong with it, which
    /// problemOf() tells. @p region knows the key alone: a description would answer for a management block that is
    /// not there yet.
    bool isPublished(const RegionInspection &region) const;

    /// Why nobody with this description can attach to @p region, which was made from it; empty if it is the one
    /// that is described. In a sentence without a full stop, with what to do.
    QString problemOf(const RegionInspection &region) const;

    /// What tells whether the files at @p path are those that were read: names, sizes and times.
    static QString stampOf(const QString &path);
};

/// Milliseconds from one look at a region to the next. One that is not there is looked for at once and then ever
/// more rarely, the more attempts in a row failed that cost more than a look: a description to read, a region to
/// compare.
int intervalOfLooks(bool isAttached, int failures);
