#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "configuration/ConfigurationSource.h"
#include "configuration/ConfigurationTarget.h"

#include <QString>
#include <QVariant>

/// What would become of a write into a configuration, which is not made.
struct CheckedWrite
{
    /// What applications get from the library, which looks at the pattern of a text alone.
    ConfigurationAndProcessDataBase::SetValueStatus status;
    /// Why `tessel config set` would refuse it, which looks at more; empty if it would not.
    QString refusal;
};

/// "changed", "unchanged", "target missing", ...
QString statusText(ConfigurationAndProcessDataBase::SetValueStatus status);

/// Why the value that is there lies outside its limits; empty if it does not.
QString limitProblemOf(const ConfigurationTarget &target);

/// Of the value that is there now. The tree is as it was afterwards.
CheckedWrite writeOfPresentValue(const ConfigurationSource &source,
                                 const ConfigurationTarget &target);
/// Of the value that @p text means. What means none there is tried as a text, as an application might. The
/// tree is as it was afterwards.
CheckedWrite writeOfText(const ConfigurationSource &source, const ConfigurationTarget &target,
                         const QString &text);
