#include "commands/ExpectationReport.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "expressions/Duration.h"
#include "expressions/ExpressionExcerpt.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Table.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// Of all(**) in a large device that is enough for the eye.
constexpr int mostRows = 10;

QString answerName(Answer answer)
{
    switch (answer) {
    case Answer::No: return QStringLiteral("no");
    case Answer::Yes: return QStringLiteral("yes");
    case Answer::Unknown: break;
    }
    return QStringLiteral("unknown");
}

/// As it is written; a state alone with the URL that it speaks of.
QString textOf(const Expression &expression, const Condition &condition)
{
    const bool isStateAlone = condition.left.place.begin < condition.place.begin;
    const QString text = expression.textAt(condition.place);
    return isStateAlone
               ? QStringLiteral("%1 is %2").arg(expression.textAt(condition.left.place), text)
               : text;
}

bool speaksOfAge(const Condition &condition)
{
    return condition.left.kind == Operand::Kind::Age || condition.right.kind == Operand::Kind::Age;
}

QString milliseconds(std::chrono::microseconds duration)
{
    return QString::number(std::chrono::floor<std::chrono::milliseconds>(duration).count());
}

void addLeafRow(Table &table, const QString &condition, const Leaf &leaf, const ProcessValue &value)
{
    table.addRow({condition, leaf.url, valueText(value),
                  textProperty(leaf, Definitions::getKeyDataPropertyUnit()),
                  stateName(value.getErrorType())});
}

void addConditionRows(Table &table, const Expectation &expectation,
                      const ExpectationOutcome &outcome, const FailedCondition &each)
{
    const Expression &expression = expectation.expression();
    const Condition &condition = expression.conditions[each.condition];
    const QString text = (each.isNegated ? QStringLiteral("not ") : QString())
                         + textOf(expression, condition);
    const Answer wished = each.isNegated ? Answer::No : Answer::Yes;
    const QVector<int> leaves = expectation.leavesFor(each.condition, wished, outcome.set);
    const QVector<int> shown = leaves.mid(0, mostRows);
    for (const int leaf : shown) {
        addLeafRow(table, text, expectation.leaves()[leaf], outcome.set.values[leaf]);
    }
    if (leaves.size() > mostRows) {
        table.addRow({text, QStringLiteral("... and %1 more").arg(leaves.size() - mostRows)});
    }
    if (speaksOfAge(condition)) {
        table.addRow({text, QStringLiteral("age"),
                      outcome.set.age ? milliseconds(*outcome.set.age) : QString(),
                      QStringLiteral("ms"),
                      outcome.set.age ? QString() : QStringLiteral("unknown")});
    }
    if (leaves.isEmpty() && !speaksOfAge(condition)) {
        table.addRow({text});
    }
}

QString conditionJson(const Expectation &expectation, const ExpectationOutcome &outcome, int index,
                      const QVector<FailedCondition> &failed)
{
    const Expression &expression = expectation.expression();
    const Condition &condition = expression.conditions[index];
    const auto *const failure = std::find_if(
        failed.cbegin(), failed.cend(),
        [&](const FailedCondition &each) { return each.condition == index; });
    const bool isFailed = failure != failed.cend();
    const Answer wished = isFailed && failure->isNegated ? Answer::No : Answer::Yes;
    QStringList leaves;
    const QVector<int> asked = expectation.leavesFor(index, wished, outcome.set);
    for (const int leaf : asked) {
        leaves.append(leafJson(expectation.leaves()[leaf], outcome.set.values[leaf]));
    }
    const Answer answer = outcome.result.ofConditions[static_cast<std::size_t>(index)];
    return jsonObject({
        {QStringLiteral("text"), jsonString(textOf(expression, condition))},
        {QStringLiteral("column"), QString::number(columnOf(expression.text, condition.place))},
        {QStringLiteral("answer"), jsonString(answerName(answer))},
        {QStringLiteral("failed"), jsonBool(isFailed)},
        {QStringLiteral("leaves"), jsonArray(leaves, QStringLiteral("      "))},
    });
}

} // namespace

QString expectationTable(const Expectation &expectation, const ExpectationOutcome &outcome)
{
    const Expression &expression = expectation.expression();
    Table table({{QStringLiteral("FAILED"), Table::Alignment::Left},
                 {QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("VALUE"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left},
                 {QStringLiteral("STATE"), Table::Alignment::Left}});
    const auto failed = failedConditions(expression, outcome.result.ofSteps);
    if (failed.isEmpty()) {
        return {};
    }
    for (const auto &each : failed) {
        addConditionRows(table, expectation, outcome, each);
    }
    return table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString expectationJson(const Expectation &expectation, const ExpectationOutcome &outcome)
{
    const Expression &expression = expectation.expression();
    const auto failed = failedConditions(expression, outcome.result.ofSteps);
    QStringList conditions;
    for (int i = 0; i < expression.conditions.size(); ++i) {
        conditions.append(conditionJson(expectation, outcome, i, failed));
    }
    const bool isMet = outcome.end == ExpectationOutcome::End::Met;
    return jsonObject({
               {QStringLiteral("met"), jsonBool(isMet)},
               {QStringLiteral("holds"), jsonBool(outcome.result.holds())},
               {QStringLiteral("timedOut"),
                jsonBool(outcome.end == ExpectationOutcome::End::TimedOut)},
               {QStringLiteral("expression"), jsonString(expression.text)},
               {QStringLiteral("heldMilliseconds"), milliseconds(outcome.held)},
               {QStringLiteral("generation"), jsonNumber(outcome.generation)},
               {QStringLiteral("ageMilliseconds"),
                outcome.set.age ? milliseconds(*outcome.set.age) : jsonNull()},
               {QStringLiteral("conditions"), jsonArray(conditions, QStringLiteral("    "))},
           })
           + QLatin1Char('\n');
}
