#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "TesselModels/ModelEnumerations.h"
#include "TesselModels/SourceDescription_p.h"

#include <QString>
#include <QVariant>

#include <memory>
#include <vector>

class ProcessDataSource;

/// Value and state of a leaf, without the weight of a variant.
struct ShownCell
{
    /// The bits of the value in the type of the leaf; 0 unless the state is valid, and for a text.
    quint64 bits = 0;
    qint32 state = static_cast<qint32>(TesselModels::State::NoInput);

    bool operator==(const ShownCell &other) const
    {
        return bits == other.bits && state == other.state;
    }
};

/// How a set differs from another one; nothing where their descriptions do.
struct ShownChanges
{
    std::vector<int> leaves; ///< with another content or state, ascending
    bool isStateChanged = false;
};

/// What a display shows of a region at one moment: one set, decoded, or that there is none.
///
/// Made by the helper thread and never changed once it is handed over, so that it needs no lock.
struct ShownSet
{
    std::shared_ptr<const SourceDescription> description; ///< null: none was read
    bool isConnected = false;
    QString errorText;
    quint64 generation = 0;
    std::vector<ShownCell> cells; ///< a leaf each
    std::vector<QString> texts;   ///< those of texts that are valid, by SourceLeaf::textIndex
    ShownChanges changes;         ///< since the set that was shown before

    /// A set of leaves without input.
    explicit ShownSet(std::shared_ptr<const SourceDescription> ofDescription = nullptr);

    bool isValid(int leaf) const { return stateOf(leaf) == TesselModels::State::Valid; }
    TesselModels::State stateOf(int leaf) const
    {
        return static_cast<TesselModels::State>(cells[static_cast<std::size_t>(leaf)].state);
    }
    const SourceLeaf &leafAt(int leaf) const
    {
        return description->leaves[static_cast<std::size_t>(leaf)];
    }
    /// In the type of the leaf; invalid unless the state is valid.
    QVariant value(int leaf) const;
    /// The value for a person: of numbers the shortest text that reads back as the same, of selectors the
    /// entry, and the sign of the state of a value that is not valid.
    QString text(int leaf) const;

    /// Takes over what @p snapshot has. Of leaves that do not differ from @p former, which has led to
    /// @p formerSet, what was decoded then. Null elements keep no input.
    void decode(const QVector<ProcessDataValueSharedPointer> &elements,
                const ProcessDataSnapshot &snapshot, const ProcessDataSnapshot &former,
                const ShownSet *formerSet);
    /// Fills changes.
    void compareWith(const ShownSet &shownBefore);
    /// What a model has to tell that has shown @p former up to now. That is not the set before this one where a
    /// slot has turned the event loop in between: models behind it have missed one.
    ShownChanges changesSince(const ShownSet &former) const;
    /// By bits; only of sets of one description.
    bool isSame(int leaf, const ShownSet &other) const;

private:
    ShownChanges differencesTo(const ShownSet &other) const;
    void decodeLeaf(std::size_t leaf, const ProcessDataValue &element,
                    const ProcessDataSnapshot &snapshot);

    const ShownSet *m_comparedWith = nullptr; ///< only to tell which one it was
};

/// The way from a model to the sets of its source.
class ShownSetAccess
{
public:
    /// The set that is shown now, never null; of no source an empty one.
    static std::shared_ptr<const ShownSet> of(const ProcessDataSource *source);
};
