#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>

#include <functional>
#include <vector>

/// What the layout of a region says of one process value. Offsets and sizes in bytes.
struct LayoutLeaf
{
    QByteArray url; ///< in UTF-8
    QByteArray type;
    quint32 offset = 0;
    quint32 sizeValue = 0;
    quint32 relativeOffsetMetadata = 0;
    quint32 sizeMetadata = 0;
    quint32 bitmask = 0;
};

/// The process values below @p root, which may be null, in ascending order of the bytes of their URLs.
/// Where one URL is there twice, of the bytes of the type and then of the numbers, as they stand above.
std::vector<LayoutLeaf> layoutLeavesOf(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root);

/// Gives @p take the same ones in the same order, and keeps none. False if they cannot be had in that
/// order one by one: then @p take may have got some of them, which are to be forgotten.
bool takeLayoutLeavesOf(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root,
                        const std::function<void(const LayoutLeaf &leaf)> &take);
