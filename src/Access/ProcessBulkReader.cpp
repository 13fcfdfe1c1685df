#include "Access/ProcessBulkReader.h"

#include "Access/ConsistentReading_p.h"
#include "Access/NumberLeaf_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>

#include <algorithm>
#include <vector>

using ProcessDataDefinitions::ErrorTypes;

namespace {

/// Neighbours in the arrays whose slots have one form, so that it is asked for once.
struct Run
{
    SlotForm form;
    std::size_t first;
    std::size_t end;
};

template <SlotForm form>
void loadRun(const unsigned char *buffer, const std::vector<NumberSlot> &plan, const Run &run,
             double *values, ErrorTypes *states)
{
    const NumberSlot *const places = plan.data();
    for (std::size_t i = run.first; i < run.end; ++i) {
        const auto reading = NumberSlots::load<form>(buffer, places[i]);
        values[i] = static_cast<double>(reading.value);
        states[i] = reading.state;
    }
}

void fillRefused(const Run &run, double *values, ErrorTypes *states)
{
    std::fill(values + run.first, values + run.end, 0.0);
    std::fill(states + run.first, states + run.end,
              ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

} // namespace

/// Where the chosen slots lie, in the order of the arrays.
class ProcessBulkReader::Plan
{
public:
    void add(const NumberSlot &slot)
    {
        if (m_runs.empty() || m_runs.back().form != slot.form) {
            m_runs.push_back({slot.form, m_places.size(), m_places.size()});
        }
        m_places.push_back(slot);
        m_runs.back().end = m_places.size();
        m_isComplete = m_isComplete && slot.form != SlotForm::None;
        m_end = std::max(m_end, NumberSlots::endOf(slot));
    }

    std::size_t count() const { return m_places.size(); }
    bool isComplete() const { return m_isComplete; }
    /// The first byte behind all slots.
    quint64 end() const { return m_end; }

    void load(const unsigned char *buffer, double *values, ErrorTypes *states) const
    {
        for (const Run &run : m_runs) {
            NumberSlots::withForm(
                run.form, [&] { fillRefused(run, values, states); },
                [&](auto form) { loadRun<form>(buffer, m_places, run, values, states); });
        }
    }

private:
    std::vector<NumberSlot> m_places;
    std::vector<Run> m_runs;
    quint64 m_end = 0;
    bool m_isComplete = true;
};

namespace {

/// The slot of a leaf if it can be read through the manager, else one without a form.
NumberSlot slotOf(const ProcessDataValueSharedPointer &leaf, const QString &name,
                  ProcessDataManager &manager)
{
    if (leaf.isNull()) {
        return {};
    }
    if (SlotAccess::handler(*leaf) != ManagerAccess::handler(manager)) {
        qWarning() << "Process value belongs to another memory:" << name;
        return {};
    }
    const NumberSlot slot = SlotAccess::slot(*leaf);
    if (NumberSlots::endOf(slot) > manager.getSizeBuffer()) {
        qWarning() << "Process value lies outside the buffer:" << name;
        return {};
    }
    return slot;
}

bool isUsable(const ProcessDataManager *manager)
{
    if (manager == nullptr || !manager->isBufferValid()) {
        qWarning() << "No process data memory to read from.";
        return false;
    }
    return true;
}

} // namespace

ProcessBulkReader::ProcessBulkReader(ProcessDataManager *manager,
                                     const BaseClassSharedPointer &root, const QStringList &urls)
    : m_manager(isUsable(manager) ? manager : nullptr)
    , m_plan(std::make_unique<Plan>())
{
    for (const QString &url : urls) {
        m_plan->add(m_manager == nullptr ? NumberSlot()
                                         : slotOf(findNumberLeaf(root, url), url, *m_manager));
    }
}

ProcessBulkReader::ProcessBulkReader(ProcessDataManager *manager,
                                     const QVector<ProcessDataValueSharedPointer> &leaves)
    : m_manager(isUsable(manager) ? manager : nullptr)
    , m_plan(std::make_unique<Plan>())
{
    for (int i = 0; i < leaves.size(); ++i) {
        const QString name = QStringLiteral("place %1").arg(i);
        m_plan->add(m_manager == nullptr ? NumberSlot()
                                         : slotOf(numberLeaf(leaves[i], name), name, *m_manager));
    }
}

ProcessBulkReader::~ProcessBulkReader() = default;

int ProcessBulkReader::getCount() const
{
    return static_cast<int>(m_plan->count());
}

bool ProcessBulkReader::isComplete() const
{
    return m_plan->isComplete();
}

bool ProcessBulkReader::read(double *values, ErrorTypes *states)
{
    if (m_manager == nullptr || !m_manager->isBufferValid()) {
        return false;
    }
    bool isInside = true;
    const bool isConsistent = ConsistentReading::repeatUntilReliable(*m_manager, [&] {
        // A manager that was given another description meanwhile may have a smaller buffer.
        isInside = m_plan->end() <= m_manager->getSizeBuffer();
        if (isInside) {
            m_plan->load(m_manager->getPointerReadBuffer(), values, states);
        }
    });
    if (!isInside) {
        qWarning() << "The process data memory is smaller than when the reader was made.";
    }
    return isConsistent && isInside;
}
