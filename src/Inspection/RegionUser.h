#pragma once

#include <QString>
#include <QtGlobal>

/// A process that has a region mapped.
struct RegionUser
{
    /// Process id as the looking process sees it.
    qint64 pid;
    /// Name of its program, without folders; empty where it may not be seen.
    QString program;
    /// It has another memory than the one to which the name leads now: that was replaced or removed
    /// since, and nobody who attaches today sees what this process writes.
    bool isReplaced;
    /// It has attached with another layout of the leaves than the creator's, at least once.
    bool hasOtherLayout;
};
