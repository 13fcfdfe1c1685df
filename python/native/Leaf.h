#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"

#include <QString>
#include <QStringList>
#include <QVariant>

/// A process value of an open region, with what its description says of it.
struct Leaf
{
    QString url;
    QString type; ///< name of the data type, such as `float`
    int metaType = 0;
    quint32 sizeValue = 0; ///< bytes
    quint32 bitmask = 0;
    bool hasMetadata = false; ///< a place for the error state beside the value
    QString unit;
    QString label; ///< identifier of the text to show
    // Invalid where the description has none.
    QVariant minLimit;
    QVariant maxLimit;
    QVariant viewStart;
    QVariant viewEnd;
    QStringList entries; ///< what a selector selects from, by index
    bool isReadOnly = false;
    /// Why its slot cannot be used; empty if it can.
    QString slotProblem;
    /// Bound while the region is open, and null afterwards.
    ProcessDataValueSharedPointer element;

    bool isText() const { return metaType == QMetaType::QString; }
};
