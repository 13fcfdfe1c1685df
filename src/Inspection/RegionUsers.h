#pragma once

#include "Companion/TesselExport.h"
#include "Inspection/RegionUser.h"

#include <QStringList>
#include <QVector>

#include <memory>

class RegionInspection;

/// Who has which region mapped, by one look at all processes of the machine.
///
/// The look is taken at the construction, and all that is told of a process is of that moment. It costs a
/// few milliseconds for a hundred processes. Processes of other users are only seen by root, and of other
/// containers only by their host.
class TESSEL_EXPORT RegionUsers
{
public:
    RegionUsers();
    ~RegionUsers();

    RegionUsers(const RegionUsers &) = delete;
    RegionUsers &operator=(const RegionUsers &) = delete;

    /// In ascending order of their ids. A process with two memories of the name is there twice. The
    /// looking process counts as any other; an inspection alone maps nothing.
    QVector<RegionUser> getUsersOf(const RegionInspection &region) const;
    /// The memory keys of all regions that somebody had mapped, in alphabetical order: also of those whose
    /// names have gone, which RegionInspection::findKeys() does not find. A file of somebody else whose name
    /// ends as theirs is among them.
    QStringList getKeys() const;
    /// Whether all processes could be looked at. If not, others may have the region mapped as well. Where
    /// /proc hides processes (`hidepid`) they could only for the group that is told of all. Never
    /// inside a container with process ids of its own: who is outside may share the memory.
    bool isComplete() const;

private:
    struct Q_DECL_HIDDEN Private;
    std::unique_ptr<Private> m_private;
};
