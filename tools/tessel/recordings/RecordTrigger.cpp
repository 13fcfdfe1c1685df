#include "recordings/RecordTrigger.h"

#include "expressions/Duration.h"
#include "expressions/TypedExpectation.h"
#include "recordings/SlotCopies.h"
#include "recordings/TriggerHint.h"
#include "text/Suggestion.h"
#include "text/WrongUse.h"
#include "values/StateName.h"

#include <QRegularExpression>

namespace {

using Clock = RecordTrigger::Clock;
using ProcessDataDefinitions::ErrorTypes;

constexpr auto command = "record";

ImageLayout layoutOf(const QVector<Leaf> &leaves)
{
    QVector<RecordedValue> values;
    for (const auto &leaf : leaves) {
        values.append(recordedValueOf(leaf, slotOf(leaf)));
    }
    return ImageLayout(values);
}

/// One of the leaves gets into a state, or out of it.
class StateTrigger : public RecordTrigger
{
public:
    StateTrigger(const QString &text, ErrorTypes state, bool isNegated, const QVector<Leaf> &leaves)
        : RecordTrigger(text)
        , m_state(state)
        , m_isNegated(isNegated)
        , m_leaves(leaves)
        , m_copies(slotsOf(leaves), layoutOf(leaves))
        , m_holds(static_cast<std::size_t>(leaves.size()))
    {
    }

    QVector<Leaf> leaves() const override { return m_leaves; }

    bool comesWith(const ProcessDataSnapshot &set, Clock::time_point /*now*/,
                   bool /*isNext*/) override
    {
        m_changes.resize(0);
        const std::vector<int> &changed = m_copies.take(set.getBytes(), m_changes);
        bool comes = false;
        if (m_isFirst) {
            for (int i = 0; i < m_leaves.size(); ++i) {
                look(set, i);
            }
        } else {
            for (const int i : changed) {
                const bool held = m_holds[static_cast<std::size_t>(i)];
                comes = (look(set, i) && !held) || comes;
            }
        }
        m_isFirst = false;
        return comes;
    }

private:
    bool look(const ProcessDataSnapshot &set, int index)
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        set.getValue(*m_leaves[index].element, value);
        const bool holds = (value.getErrorType() == m_state) != m_isNegated;
        m_holds[static_cast<std::size_t>(index)] = holds;
        return holds;
    }

    ErrorTypes m_state;
    bool m_isNegated;
    QVector<Leaf> m_leaves;
    SlotCopies m_copies;
    std::vector<bool> m_holds;
    QByteArray m_changes;
    bool m_isFirst = true;
};

/// No set comes for longer than a time.
class GapTrigger : public RecordTrigger
{
public:
    GapTrigger(const QString &text, std::chrono::microseconds gap) : RecordTrigger(text), m_gap(gap)
    {
    }

    bool needsEverySet() const override { return true; }

    bool comesWith(const ProcessDataSnapshot & /*set*/, Clock::time_point now, bool isNext) override
    {
        // Where sets were dropped it was this process that came late.
        const bool comes = m_last && !m_hasCome && isNext && now - *m_last > m_gap;
        m_last = now;
        m_hasCome = false;
        return comes;
    }

    std::optional<Clock::time_point> deadline() const override
    {
        return m_last && !m_hasCome ? std::make_optional(*m_last + m_gap) : std::nullopt;
    }

    bool comesWithoutSet(Clock::time_point now) override
    {
        const bool comes = m_last && !m_hasCome && now - *m_last > m_gap;
        m_hasCome = m_hasCome || comes;
        return comes;
    }

private:
    std::chrono::microseconds m_gap;
    std::optional<Clock::time_point> m_last;
    bool m_hasCome = false; ///< in this gap
};

/// An expression begins to hold.
class ExpressionTrigger : public RecordTrigger
{
public:
    ExpressionTrigger(const QString &text, Expectation expectation)
        : RecordTrigger(text)
        , m_expectation(std::move(expectation))
    {
        if (m_expectation.usesAge()) {
            refuseUse(
                command,
                QStringLiteral("--on knows no 'age', which is none when a set comes; use 'gap > "
                               "500ms'"));
        }
    }

    QVector<Leaf> leaves() const override { return m_expectation.leaves(); }

    bool comesWith(const ProcessDataSnapshot &set, Clock::time_point /*now*/,
                   bool /*isNext*/) override
    {
        ExpectedSet asked;
        for (const auto &leaf : m_expectation.leaves()) {
            ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
            set.getValue(*leaf.element, value);
            asked.values.append(value);
        }
        const bool holds = m_expectation.resultOf(asked).holds();
        const bool comes = holds && !m_held;
        m_held = holds;
        return comes;
    }

private:
    Expectation m_expectation;
    bool m_held = true; ///< with the set before
};

std::chrono::microseconds gapOf(const QString &text)
{
    const auto gap = durationFromText(text);
    if (!gap || gap->count() == 0) {
        refuseUse(
            command,
            QStringLiteral("--on: a gap takes a time such as 'gap > 500ms', not '%1'").arg(text));
    }
    return *gap;
}

ErrorTypes stateOf(const QString &text)
{
    const auto state = knownState(text);
    if (!state) {
        refuseUse(command,
                  QStringLiteral("--on: '%1' is no state%2; use a number from 0 to 9 or one of %3")
                      .arg(text, suggestion(text, stateNames()),
                           stateNames().join(QStringLiteral(", "))));
    }
    return *state;
}

/// What is wrong with it as an expression says little of a text that was meant as another form.
void refuseNearMiss(const QString &text, const DescriptionSource &description)
{
    try {
        const Expectation valid(text, description);
    } catch (const ExpressionError &) {
        const QString nearest = nearestTrigger(text);
        if (!nearest.isEmpty()) {
            refuseUse(
                command,
                QStringLiteral("--on '%1' is no trigger (did you mean '%2'?)").arg(text, nearest));
        }
    }
}

} // namespace

RecordTrigger::~RecordTrigger() = default;

std::unique_ptr<RecordTrigger> RecordTrigger::fromText(const QString &text,
                                                       const DescriptionSource &description)
{
    static const QRegularExpression state(
        QStringLiteral("\\A\\s*state\\s*(==|!=)\\s*([^\\s:]+)\\s*:\\s*(.+?)\\s*\\z"));
    static const QRegularExpression gap(QStringLiteral("\\A\\s*gap\\s*>(?!=)\\s*(.*?)\\s*\\z"));
    const QRegularExpressionMatch ofState = state.match(text);
    if (ofState.hasMatch()) {
        return std::make_unique<StateTrigger>(text, stateOf(ofState.captured(2)),
                                              ofState.captured(1) == QLatin1String("!="),
                                              description.leavesAt({ofState.captured(3)}));
    }
    const QRegularExpressionMatch ofGap = gap.match(text);
    if (ofGap.hasMatch()) {
        return std::make_unique<GapTrigger>(text, gapOf(ofGap.captured(1)));
    }
    refuseNearMiss(text, description);
    return std::make_unique<ExpressionTrigger>(
        text, typedExpectation(QStringLiteral("record"), text, description));
}
