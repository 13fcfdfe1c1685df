#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

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
    /// It has attached with another layout of the leaves than the creator's, at least once. Unknown where the
    /// inspected memory tells nothing of it: in a region with a single buffer, with a block of another memory
    /// format or without a fingerprint, for a process with another memory, and for one that is not among the
    /// eight for whom there is place there when these are taken. Also where the start that was noted cannot be
    /// compared, as that of a process in another time namespace, for one that attached before the creator had
    /// said its layout, for one that may be a forked child of a noted one: that was started no earlier, and for
    /// one that maps the memory for reading alone, which leaves no word.
    std::optional<bool> hasOtherLayout;
};
