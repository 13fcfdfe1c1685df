#pragma once

#include "Companion/TesselExport.h"
#include "Validation/DescriptionProblem.h"
#include "Validation/DescriptionRule.h"

#include <QStringList>
#include <QVector>

/// Looks descriptions over before they reach a device: all that loading, building, binding, merging and
/// writing would refuse, ignore, lose or misread.
///
/// Nothing is written and no region is touched. Descriptions are read as the parser reads them, and a folder
/// is laid out by ProcessDataBuilder; what those say of a folder's links and display positions goes to the
/// log as ever. The functions share nothing, so that threads may call them at once.
class TESSEL_EXPORT DescriptionCheck
{
public:
    DescriptionCheck() = delete;

    /// Every problem of @p paths, which name descriptions, NAME.config.json or NAME.process.json, folder
    /// descriptions and instance directories. In ascending order of file, line, column and rule; empty if
    /// all is well. A path that does not exist is a problem itself.
    static QVector<DescriptionProblem> check(const QStringList &paths);

    /// All rules, in ascending order of their names.
    static QVector<DescriptionRule> getRules();
};
