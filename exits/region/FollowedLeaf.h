#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"

#include <QString>
#include <QStringList>

#include <optional>

/// A process value of a followed description, with what its description says of it.
struct FollowedLeaf
{
    enum class Kind { Number, Boolean, Text };

    QString url; ///< in the whole tree
    /// The device that it belongs to: of a folder the first piece of its URL, else the name of the file.
    QString device;
    QString urlInDevice; ///< the URL without the device; the whole one of a file
    QString type;        ///< name of the data type, such as `float`
    Kind kind = Kind::Number;
    QString unit;  ///< empty: none
    QString label; ///< identifier of the text to show; empty: none
    // In the type of the leaf; none: not given.
    std::optional<QVariant> minLimit;
    std::optional<QVariant> maxLimit;
    std::optional<QVariant> viewStart;
    std::optional<QVariant> viewEnd;
    QStringList entries;     ///< what a selector selects from, by index
    bool isReadOnly = false; ///< only the creator of the region writes it
    /// Bound while the region is up, and null while it is not.
    ProcessDataValueSharedPointer element;
};
