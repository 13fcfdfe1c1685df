#include "native/TakenSet.h"

#include "native/OpenRegion.h"

#include <limits>
#include <utility>

namespace {

ProcessValue nothing()
{
    return ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
}

double numberOf(const ProcessValue &value)
{
    const QVariant &content = value.getValue();
    const bool isNumber = value.getErrorType()
                              == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                          && content.isValid() && content.userType() != QMetaType::QString;
    return isNumber ? content.toDouble() : std::numeric_limits<double>::quiet_NaN();
}

} // namespace

TakenSet::TakenSet(std::shared_ptr<OpenRegion> region, QVector<int> leaves,
                   ProcessDataSnapshot snapshot)
    : m_region(std::move(region))
    , m_leaves(std::move(leaves))
    , m_snapshot(std::move(snapshot))
{
}

TakenSet::~TakenSet()
{
    m_region->forget(this);
}

void TakenSet::decode(int place, ProcessValue &value) const
{
    if (m_isDecoded) {
        value = m_decoded[static_cast<std::size_t>(place)];
        return;
    }
    m_snapshot.getValue(*m_region->leaves()[m_leaves[place]].element, value);
}

ProcessValue TakenSet::value(int place) const
{
    ProcessValue value = nothing();
    m_region->exclusively([&] { decode(place, value); });
    return value;
}

std::vector<ProcessValue> TakenSet::values() const
{
    std::vector<ProcessValue> values;
    m_region->exclusively([&] { values = decoded(); });
    return values;
}

void TakenSet::fill(double *numbers) const
{
    m_region->exclusively([&] {
        ProcessValue value = nothing();
        for (int place = 0; place < m_leaves.size(); ++place) {
            decode(place, value);
            numbers[place] = numberOf(value);
        }
    });
}

void TakenSet::fillStates(qint32 *states) const
{
    m_region->exclusively([&] {
        ProcessValue value = nothing();
        for (int place = 0; place < m_leaves.size(); ++place) {
            decode(place, value);
            states[place] = value.getErrorType();
        }
    });
}

std::vector<ProcessValue> TakenSet::decoded() const
{
    std::vector<ProcessValue> values(static_cast<std::size_t>(m_leaves.size()), nothing());
    for (int place = 0; place < m_leaves.size(); ++place) {
        decode(place, values[static_cast<std::size_t>(place)]);
    }
    return values;
}

void TakenSet::decodeAll()
{
    m_decoded = decoded();
    m_isDecoded = true;
}
