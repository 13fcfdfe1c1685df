#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "Inspection/CreatorSearch_p.h"
#include "Inspection/RegionFile_p.h"
#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/LayoutDigest_p.h"
#include "ProcessDataManagement/LayoutTable_p.h"

/// Words of processes, as ProcessStart makes them.
struct OtherLayouts
{
    std::vector<quint64>
        words;       ///< of those that have attached with another layout; 0: a free place
    quint64 creator; ///< who has the layout of the region
};

/// What an inspection keeps of its description, and the memory.
class RegionInspection::Private
{
public:
    using Block = PingPongBufferHandler::ManagementBuffer;

    /// What a description says of the region.
    struct Description
    {
        explicit Description(const BaseClassSharedPointer &root);

        /// The leaves, as long as this lives.
        LayoutDigest::Leaves inOrder() const;

        quint32 bufferSize = 0;
        bool isDoubleBuffer;
        LayoutTable leaves;
    };

    /// The memory key in the name of a memory; empty if it is not named as a region is.
    static QString keyIn(const QString &nameOfMemory);

    explicit Private(const QString &memoryKey);
    explicit Private(const BaseClassSharedPointer &root);

    /// False without a management block of this format.
    bool readBlock(Block &block) const;
    /// Whether there is such a block, be it of this format or of another version's.
    bool hasBlock() const;
    /// Whether the region has the size of the description.
    bool hasSizeOfDescription() const;
    /// Where a buffer of the description begins; none if the region has no such buffer.
    std::optional<qint64> offsetOf(Buffer buffer) const;
    /// Of the block; none where nobody could have noted himself.
    std::optional<OtherLayouts> otherLayouts() const;
    static CreatorSearch::Creator creatorIn(const Block &block);
    std::optional<LayoutLeaf> findLeaf(const QString &url) const;
    /// The bytes of a slot, if they lie inside a buffer of the description.
    QByteArray bytes(Buffer buffer, quint64 offset, quint32 size) const;

    QString key;
    QString name;         ///< of the memory
    QString semaphoreKey; ///< text from which the key of the semaphores is made
    RegionFile file;
    std::optional<Description> description;
    CreatorSearch::Creator firstCreator;               ///< at the construction
    ProcessList::Clock::time_point timeOfFirstCreator; ///< It ran then, or before.
};
