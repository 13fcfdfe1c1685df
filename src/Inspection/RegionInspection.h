#pragma once

#include "Companion/TesselExport.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Inspection/RegionCreator.h"
#include "Inspection/RegionLock.h"
#include "Inspection/RegionUser.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>
#include <optional>

/// What is to be known about a region, without taking part in it.
///
/// Takes no lock, changes nothing, and never waits. It holds the shared memory open for reading alone and
/// maps nothing of it, so that nobody who shortens or empties it can end the looking process. The memory
/// is that of the moment of the construction; make another object to see a later one of that name. Each
/// operation tells how things stand when it is called.
///
/// What is unknown is an empty optional: whatever the management block says of a region with a single
/// buffer, which has no such block, or of one whose creator had an older library. Copies look at the same
/// memory. Any thread may use an object.
class TESSEL_EXPORT RegionInspection
{
public:
    /// In which trees travel.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// Of the memory key @p key alone: what only a description says stays unknown.
    explicit RegionInspection(const QString &key);
    /// Of the description below @p root, which may be bound or not and is not kept. A null root, or
    /// one without a memory key, is a region that is not there.
    explicit RegionInspection(const BaseClassSharedPointer &root);
    ~RegionInspection();
    /// Looks at the same memory as @p other.
    RegionInspection(const RegionInspection &other);
    /// The same.
    RegionInspection &operator=(const RegionInspection &other);

    /// Of the description in a file, whose name ends in `.process.json`.
    static RegionInspection fromFile(const QString &fileName);
    /// Of a directory of process descriptions, as it was laid out last.
    static RegionInspection fromDirectory(const QString &processDir);
    /// The memory keys of all regions of this machine, in alphabetical order. A file of somebody else
    /// whose name ends as theirs is among them. Empty as well where this process could not look for them:
    /// findKeysWithStatus() tells.
    static QStringList findKeys();
    /// The same in @p keys. Returns 0, or errno of what kept this process from looking for them, such as EMFILE
    /// where it has no descriptor left: then there may be more regions than those in @p keys.
    static int findKeysWithStatus(QStringList &keys);

    /// The memory key; empty if the description has none.
    QString getKey() const;
    /// Whether there was something of that name, be it a region or not. Never for a key that no memory can
    /// have, such as one with a slash inside.
    bool exists() const;
    /// Whether it could be opened. If not, all that follows is unknown, 0 or empty.
    bool isReadable() const;
    /// errno of what hindered that, and the system's words for it; 0 and empty without.
    int getError() const;
    /// See getError().
    QString getErrorString() const;

    /// Bytes of the whole region.
    qint64 getSize() const;
    /// Whether it has two buffers: by the management block, also that of another version of the memory format,
    /// whose other words are unknown; or else by the description.
    std::optional<bool> isDoubleBuffer() const;
    /// Bytes of one buffer.
    std::optional<quint32> getBufferSize() const;
    /// How often a set was published so far. The creator publishes the first one, without values.
    std::optional<quint64> getSwapCount() const;
    /// When that was done last, to some milliseconds, in UTC.
    std::optional<QDateTime> getLastSwap() const;
    /// Who made it. A creator of another container is looked for among all processes: whoever asks of many
    /// regions makes all inspections first, and one search will do.
    RegionCreator getCreator() const;
    /// How it stands with the write lock.
    RegionLock getLock() const;
    /// Who has it mapped. Use RegionUsers for many regions at once.
    QVector<RegionUser> getUsers() const;

    /// What became of the name.
    enum class Name {
        Current,  ///< It leads to the memory that is looked at.
        Replaced, ///< It leads to another one by now.
        Removed   ///< It is no more, or was not there from the beginning.
    };
    /// What became of the name since the construction.
    RegionInspection::Name getName() const;

    /// LayoutFingerprint of the creator's description.
    std::optional<quint64> getFingerprint() const;
    /// Whether the creator laid its leaves out as the description does. False also if the size is
    /// another one. Unknown without a description or fingerprint.
    std::optional<bool> hasLayoutOfDescription() const;
    /// URL of the first leaf of the description at which the layouts differ, as far as it can be told;
    /// empty if they do not, or if it cannot.
    QString findFirstDifference() const;

    /// The two buffers of a region; a single one is First.
    enum class Buffer { First = 0, Second = 1 };
    /// The buffer that readers see now.
    std::optional<RegionInspection::Buffer> getReadBuffer() const;
    /// The bytes of the value at the URL of the description, as they lie in @p buffer at this moment:
    /// of a buffer that is being written they may be half of two values. Empty if there is no such leaf
    /// or buffer, if the slot reaches outside, or if the region has another size than the description asks
    /// for, or a management block where it asks for none, or the other way round: then the leaf lies
    /// elsewhere. Of a region of the same size whose leaves lie in another order, which
    /// hasLayoutOfDescription() tells, they are the bytes of that place.
    QByteArray getValueBytes(const QString &url, RegionInspection::Buffer buffer) const;
    /// The bytes of its error state; empty if the slot has none. See getValueBytes().
    QByteArray getErrorStateBytes(const QString &url, RegionInspection::Buffer buffer) const;

private:
    friend class RegionUsers; // needs to know the memory

    class Q_DECL_HIDDEN Private;
    std::shared_ptr<const Private> m_private;
};
