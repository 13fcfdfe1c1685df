#pragma once

#include "Companion/TesselExport.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QString>
#include <QtGlobal>

#include <array>
#include <memory>
#include <vector>

struct LayoutLeaf;

/// Tells whether two process descriptions lay their leaves out in the same way.
///
/// Made from URL, type, offset, sizes, distance of the error state and bit mask of every leaf, and from
/// nothing else: texts, limits and units may differ between two processes of one region. The creator
/// of a double buffer leaves it in the management block; docs/memory-format.md says how another program
/// computes it. An object keeps what it needs of the tree, and may be used by any thread.
class TESSEL_EXPORT LayoutFingerprint
{
public:
    /// In which trees travel.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    /// A number for each of so many equal parts of a buffer, made from the leaves that begin in it.
    using Parts = std::array<quint32, 32>;

    /// Of the tree below @p root, bound or not. A null root counts as one without leaves.
    explicit LayoutFingerprint(const BaseClassSharedPointer &root);

    /// Never 0, which stands for an unknown layout.
    quint64 getValue() const;
    /// The parts of a buffer of @p bufferSize bytes. A leaf behind its end counts to the last part.
    LayoutFingerprint::Parts getParts(quint32 bufferSize) const;
    /// URL of the leaf that comes first in the buffer where @p others, of another layout, differ. Leaves
    /// between it and the true first difference cannot be told apart from it if they share its part.
    /// Empty if nothing differs, or only where this layout has no leaf.
    QString findFirstDifference(const LayoutFingerprint::Parts &others, quint32 bufferSize) const;

private:
    std::shared_ptr<const std::vector<LayoutLeaf>> m_leaves;
};
