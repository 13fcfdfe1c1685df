#pragma once

#include "ProcessData/ProcessValue.h"
#include "simulation/ValueRange.h"

#include <QStringList>

#include <random>

/// How the values of a simulation move.
enum class SimulationProfile {
    Normal, ///< smoothly, with a trace of noise
    Noisy,  ///< with noise of up to a tenth of the range
    Faulty  ///< as Normal, and error states come and go
};

/// Makes up the values of one leaf, set by set.
///
/// What it makes is the same for the same leaf, profile and seed, whatever other leaves there are.
class SimulatedLeaf
{
public:
    // A fault begins in one of so many sets, and lasts for at most so many.
    static constexpr quint32 sm_setsBetweenFaults = 20;
    static constexpr quint32 sm_longestFault = 5;

    SimulatedLeaf(const Leaf &leaf, SimulationProfile profile, quint64 seed);

    const Leaf &leaf() const { return m_leaf; }
    /// None of a boolean and of a text.
    const std::optional<ValueRange> &range() const { return m_range; }
    /// "sine", "triangle", "steps", "square" or "texts"; "none" of a type that has no values.
    QString waveform() const;
    /// From one crest to the next.
    double periodInSeconds() const { return m_period; }
    /// Whether it is given error states; a slot that cannot carry one never is.
    bool hasFaults() const { return m_hasFaults; }

    /// The next value, for a set that is published @p seconds after the first one.
    ProcessValue next(double seconds);

private:
    enum class Form { None, Sine, Triangle, Steps, Square, Texts };

    Form formOf() const;
    double random();
    quint32 randomBelow(quint32 end);
    bool isFaultDue();
    double fractionAt(double turn);
    QVariant contentAt(double turn);
    QVariant numberAt(double fraction) const;

    Leaf m_leaf;
    LeafSlot m_slot;
    std::optional<ValueRange> m_range;
    SimulationProfile m_profile;
    bool m_hasFaults;
    std::mt19937_64 m_random;
    Form m_form;
    double m_period = 0;
    double m_phase = 0;
    quint32 m_faultySets = 0; ///< that are still to come
    quint32 m_fault = 0;      ///< counts the faults; each is of the next state
};
