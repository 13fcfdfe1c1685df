#pragma once

#include <QString>
#include <QStringList>

/// What the name of a type stands for.
struct DescribedType
{
    int metaType =
        0; ///< QMetaType::Type in which values are held; 0 for a node, an array and an unknown name
    int slotSize = 0; ///< in bytes; 0 if the name does not settle it
    bool isNode = false;
    bool isArray = false;
    bool isText = false;
    bool isSelector = false;
    bool isNumber = false;
    bool isBit = false;

    bool isKnown() const { return isNode || isArray || metaType != 0; }
    /// Whether it can be the type of a leaf in a region.
    bool hasSlot() const { return metaType != 0; }

    static DescribedType of(const QString &name);
    static QStringList names();
};
