#include "simulation/SimulatedLeaf.h"

#include "Configuration/ConfigurationAndProcessDataTools.h"

#include <cmath>
#include <limits>

namespace {

constexpr quint32 errorStates = 9; // beside the valid one

/// FNV-1a: the same number for the same leaf in every process.
quint64 digestOf(const QString &text)
{
    constexpr quint64 begin = 14695981039346656037ULL;
    constexpr quint64 prime = 1099511628211ULL;
    quint64 digest = begin;
    const QByteArray bytes = text.toUtf8();
    for (const char byte : bytes) {
        digest = (digest ^ static_cast<unsigned char>(byte)) * prime;
    }
    return digest;
}

const QStringList &words()
{
    static const QStringList list{QStringLiteral("ready"), QStringLiteral("running"),
                                  QStringLiteral("waiting"), QStringLiteral("stopped")};
    return list;
}

double noiseOf(SimulationProfile profile)
{
    constexpr double trace = 0.005;
    constexpr double much = 0.1;
    return profile == SimulationProfile::Noisy ? much : trace;
}

/// The nearest number of single precision that lies within the range, and stands for no error state in a slot
/// that keeps those in the number.
float singleIn(double number, double least, double most, bool hasMetadata)
{
    auto single = static_cast<float>(number);
    if (double(single) > most) {
        single = std::nextafter(single, -std::numeric_limits<float>::infinity());
    }
    if (double(single) < least) {
        single = std::nextafter(single, std::numeric_limits<float>::infinity());
    }
    const auto &states = ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType();
    return hasMetadata || !states.contains(single) ? single : std::nextafter(single, 0.0F);
}

} // namespace

SimulatedLeaf::SimulatedLeaf(const Leaf &leaf, SimulationProfile profile, quint64 seed)
    : m_leaf(leaf)
    , m_slot(slotOf(leaf))
    , m_range(rangeOf(leaf))
    , m_profile(profile)
    , m_hasFaults(profile == SimulationProfile::Faulty && m_slot.carriesErrorState())
    , m_random(seed ^ digestOf(leaf.url))
    , m_form(formOf())
{
    // Seconds, so that an eye can follow it.
    constexpr double shortest = 20;
    constexpr double variety = 40;
    m_period = shortest + variety * random();
    m_phase = random();
    m_fault = randomBelow(errorStates);
}

SimulatedLeaf::Form SimulatedLeaf::formOf() const
{
    if (m_slot.metaType == QMetaType::Bool) {
        return Form::Square;
    }
    if (m_slot.metaType == QMetaType::QString) {
        return Form::Texts;
    }
    if (!m_range) {
        return Form::None;
    }
    if (ConfigurationAndProcessDataTools::isSelectorType(m_slot.type)) {
        return Form::Steps;
    }
    return m_range->least.userType() == QMetaType::Double ? Form::Sine : Form::Triangle;
}

QString SimulatedLeaf::waveform() const
{
    switch (m_form) {
    case Form::Sine: return QStringLiteral("sine");
    case Form::Triangle: return QStringLiteral("triangle");
    case Form::Steps: return QStringLiteral("steps");
    case Form::Square: return QStringLiteral("square");
    case Form::Texts: return QStringLiteral("texts");
    case Form::None: break;
    }
    return QStringLiteral("none");
}

ProcessValue SimulatedLeaf::next(double seconds)
{
    if (isFaultDue()) {
        return {static_cast<ProcessDataDefinitions::ErrorTypes>(1 + m_fault % errorStates)};
    }
    const double turns = seconds / m_period + m_phase;
    return {contentAt(turns - std::floor(turns)),
            ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// The distributions of the standard library differ from one to the next.
double SimulatedLeaf::random()
{
    constexpr int unusedBits = 11;
    constexpr double scale = 1.0 / double(quint64(1) << 53U);
    return static_cast<double>(m_random() >> unusedBits) * scale;
}

quint32 SimulatedLeaf::randomBelow(quint32 end)
{
    return static_cast<quint32>(random() * end);
}

bool SimulatedLeaf::isFaultDue()
{
    if (!m_hasFaults) {
        return false;
    }
    if (m_faultySets > 0) {
        --m_faultySets;
        return true;
    }
    if (randomBelow(sm_setsBetweenFaults) != 0) {
        return false;
    }
    m_faultySets = randomBelow(sm_longestFault);
    ++m_fault;
    return true;
}

double SimulatedLeaf::fractionAt(double turn)
{
    constexpr double fullTurn = 6.283185307179586;
    const double noise = noiseOf(m_profile) * (2 * random() - 1);
    switch (m_form) {
    case Form::Sine: return (1 + std::sin(fullTurn * turn)) / 2 + noise;
    case Form::Triangle: return 1 - std::abs(2 * turn - 1) + noise;
    default: return turn;
    }
}

QVariant SimulatedLeaf::contentAt(double turn)
{
    const double fraction = fractionAt(turn);
    switch (m_form) {
    case Form::Square: return fraction < 1.0 / 2;
    case Form::Texts: {
        const int capacity = static_cast<int>(m_slot.size / 2) - 1;
        const int index = static_cast<int>(fraction * words().size());
        return words().value(index).left(std::max(capacity, 0));
    }
    default: return numberAt(fraction);
    }
}

QVariant SimulatedLeaf::numberAt(double fraction) const
{
    if (!m_range) {
        return {};
    }
    const QVariant number = m_range->at(fraction);
    return m_slot.metaType == QMetaType::Float
               ? QVariant(singleIn(number.toDouble(), m_range->least.toDouble(),
                                   m_range->most.toDouble(), m_slot.hasMetadata()))
               : number;
}
