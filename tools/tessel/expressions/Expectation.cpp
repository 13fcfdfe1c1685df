#include "expressions/Expectation.h"

#include "text/Failure.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

using ContentKind = Expectation::ContentKind;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// One side of a comparison, at the moment of a set.
struct Content
{
    ContentKind kind = ContentKind::Number;
    ExactNumber number;
    QString text;
    bool truth = false;
    std::chrono::microseconds duration{0};
};

QString nameOf(ContentKind kind)
{
    switch (kind) {
    case ContentKind::Text: return QStringLiteral("a text");
    case ContentKind::Truth: return QStringLiteral("true or false");
    case ContentKind::Duration: return QStringLiteral("a time");
    case ContentKind::Number: break;
    }
    return QStringLiteral("a number");
}

std::optional<ContentKind> kindOf(const Leaf &leaf)
{
    switch (slotOf(leaf).metaType) {
    case QMetaType::Bool: return ContentKind::Truth;
    case QMetaType::QString: return ContentKind::Text;
    case QMetaType::UnknownType: return {};
    default: return ContentKind::Number;
    }
}

/// Of an operand that speaks of no leaf.
ContentKind kindOf(const Operand &operand)
{
    switch (operand.kind) {
    case Operand::Kind::Text: return ContentKind::Text;
    case Operand::Kind::Truth: return ContentKind::Truth;
    case Operand::Kind::Age:
    case Operand::Kind::Duration: return ContentKind::Duration;
    default: return ContentKind::Number;
    }
}

/// Nothing for a value that is not valid.
std::optional<Content> contentOf(const ProcessValue &value)
{
    Content content;
    const QVariant &variant = value.getValue();
    if (value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID || !variant.isValid()) {
        return {};
    }
    if (variant.userType() == QMetaType::Bool) {
        content.kind = ContentKind::Truth;
        content.truth = variant.toBool();
        return content;
    }
    if (const auto number = ExactNumber::fromContent(variant)) {
        content.number = *number;
        return content;
    }
    content.kind = ContentKind::Text;
    content.text = variant.toString();
    return content;
}

/// Of an operand, which stands for @p leaf if it speaks of leaves.
std::optional<Content> contentOf(const Operand &operand, int leaf, const ExpectedSet &set)
{
    if (operand.speaksOfLeaves()) {
        return contentOf(set.values[leaf]);
    }
    if (operand.kind == Operand::Kind::Age && !set.age) {
        return {};
    }
    Content content;
    content.kind = kindOf(operand);
    content.number = operand.number;
    content.text = operand.text;
    content.truth = operand.truth;
    content.duration = operand.kind == Operand::Kind::Age ? *set.age : operand.duration;
    return content;
}

/// Of what has no order, whatever is not equal is Less.
std::optional<Order> orderOf(const Content &left, const Content &right)
{
    switch (left.kind) {
    case ContentKind::Number: return ExactNumber::compare(left.number, right.number);
    case ContentKind::Text: return left.text == right.text ? Order::Equal : Order::Less;
    case ContentKind::Truth: return left.truth == right.truth ? Order::Equal : Order::Less;
    case ContentKind::Duration: break;
    }
    return left.duration < right.duration    ? Order::Less
           : left.duration == right.duration ? Order::Equal
                                             : Order::Greater;
}

bool isTrueFor(Comparison comparison, Order order)
{
    switch (comparison) {
    case Comparison::Less: return order == Order::Less;
    case Comparison::LessOrEqual: return order != Order::Greater;
    case Comparison::Equal: return order == Order::Equal;
    case Comparison::NotEqual: return order != Order::Equal;
    case Comparison::GreaterOrEqual: return order != Order::Less;
    case Comparison::Greater: break;
    }
    return order == Order::Greater;
}

Answer toAnswer(bool isTrue)
{
    return isTrue ? Answer::Yes : Answer::No;
}

Answer stateAnswer(const Condition &condition, const ProcessValue &value)
{
    const bool hasState = condition.state ? value.getErrorType() == *condition.state
                                          : value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID;
    return toAnswer(hasState != condition.isNegated);
}

bool isSeveral(const Operand &operand)
{
    return operand.kind == Operand::Kind::AllOf || operand.kind == Operand::Kind::AnyOf;
}

} // namespace

Expectation::Expectation(const QString &text, const DescriptionSource &description)
    : m_expression(parseExpression(text))
{
    for (const auto &condition : qAsConst(m_expression.conditions)) {
        const bool isComparison = condition.kind == Condition::Kind::Comparison;
        const Sides sides{addLeaves(condition.left, description),
                          isComparison ? addLeaves(condition.right, description) : QVector<int>()};
        check(condition, sides, description);
        m_sides.push_back(sides);
    }
}

bool Expectation::usesAge() const
{
    return std::any_of(m_expression.conditions.cbegin(), m_expression.conditions.cend(),
                       [](const Condition &condition) {
                           return condition.left.kind == Operand::Kind::Age
                                  || condition.right.kind == Operand::Kind::Age;
                       });
}

QVector<int> Expectation::addLeaves(const Operand &operand, const DescriptionSource &description)
{
    if (!operand.speaksOfLeaves()) {
        return {};
    }
    QVector<Leaf> found;
    try {
        found = isSeveral(operand) ? description.leavesAt({operand.text})
                                   : QVector<Leaf>{description.leafAt(operand.text)};
    } catch (const Failure &failure) {
        const bool isMeantForSeveral = !isSeveral(operand)
                                       && (operand.text.contains(QLatin1Char('*'))
                                           || description.root()->isUrlValid(operand.text));
        const QString hint =
            isMeantForSeveral
                ? QStringLiteral("; all(%1) and any(%1) speak of several values").arg(operand.text)
                : QString();
        throw ExpressionError{operand.place, failure.reason + hint, failure.code};
    }
    QVector<int> places;
    for (const auto &leaf : std::as_const(found)) {
        auto place = m_places.find(leaf.element.data());
        if (place == m_places.end()) {
            place = m_places.insert(leaf.element.data(), m_leaves.size());
            m_leaves.append(leaf);
        }
        places.append(*place);
    }
    return places;
}

void Expectation::check(const Condition &condition, const Sides &sides,
                        const DescriptionSource &description) const
{
    const Operand &left = condition.left;
    const Operand &right = condition.right;
    const bool isComparison = condition.kind == Condition::Kind::Comparison;
    for (const auto *const operand : {&left, &right}) {
        if (operand->kind == Operand::Kind::Age && !description.isDoubleBuffered()) {
            throw ExpressionError{operand->place,
                                  QStringLiteral("a single buffer does not say how old its values "
                                                 "are, and '%1' describes one")
                                      .arg(description.path())};
        }
    }
    if (isComparison && isSeveral(left) && isSeveral(right)) {
        throw ExpressionError{right.place,
                              QStringLiteral("all() and any() stand on one side of a comparison")};
    }
    const bool isOfSet = left.speaksOfLeaves() || right.speaksOfLeaves()
                         || left.kind == Operand::Kind::Age || right.kind == Operand::Kind::Age;
    if (isComparison && !isOfSet) {
        throw ExpressionError{condition.place,
                              QStringLiteral("a comparison has a URL or 'age' on one side")};
    }
    if (condition.kind != Condition::Kind::State) {
        checkKinds(condition, sides);
    }
}

/// What one side is made of, and how a message calls it.
QVector<Expectation::NamedKind> Expectation::kindsOf(const Operand &operand,
                                                     const QVector<int> &places) const
{
    if (!operand.speaksOfLeaves()) {
        const ContentKind kind = kindOf(operand);
        const QString name = operand.kind == Operand::Kind::Age ? QStringLiteral("'age'")
                                                                : QStringLiteral("the other side");
        return {{QStringLiteral("%1 is %2").arg(name, nameOf(kind)), kind}};
    }
    QVector<NamedKind> kinds;
    for (const int place : places) {
        const Leaf &leaf = m_leaves[place];
        const auto kind = kindOf(leaf);
        if (!kind) {
            throw ExpressionError{operand.place,
                                  QStringLiteral("'%1' has no type of a value").arg(leaf.url)};
        }
        kinds.append({QStringLiteral("'%1' is %2").arg(leaf.url, nameOf(*kind)), *kind});
    }
    return kinds;
}

/// Whether everything on the one side can be compared with everything on the other one.
void Expectation::checkKinds(const Condition &condition, const Sides &sides) const
{
    const auto refuse = [&](const QString &reason) {
        throw ExpressionError{condition.place, reason};
    };
    const auto left = kindsOf(condition.left, sides.left);
    if (condition.kind == Condition::Kind::Truth) {
        for (const auto &kind : left) {
            if (kind.second != ContentKind::Truth) {
                refuse(kind.first + QStringLiteral(" and has to be compared"));
            }
        }
        return;
    }
    const auto right = kindsOf(condition.right, sides.right);
    const bool isOrder = condition.comparison != Comparison::Equal
                         && condition.comparison != Comparison::NotEqual;
    for (const auto &a : left) {
        for (const auto &b : right) {
            if (a.second != b.second) {
                refuse(QStringLiteral("%1 and %2, which cannot be compared").arg(a.first, b.first));
            }
        }
        if (isOrder && (a.second == ContentKind::Text || a.second == ContentKind::Truth)) {
            refuse(QStringLiteral("texts and truth values are == or !=, and none is larger than "
                                  "another"));
        }
    }
}

ExpectationResult Expectation::resultOf(const ExpectedSet &set) const
{
    ExpectationResult result;
    for (int i = 0; i < m_expression.conditions.size(); ++i) {
        result.ofConditions.push_back(answerOf(i, set));
    }
    result.ofSteps = answersOf(m_expression, result.ofConditions);
    return result;
}

Answer Expectation::answerOf(int condition, const ExpectedSet &set) const
{
    const Condition &asked = m_expression.conditions[condition];
    const Sides &sides = m_sides[static_cast<std::size_t>(condition)];
    const bool isLeftSeveral = isSeveral(asked.left);
    if (!isLeftSeveral && !isSeveral(asked.right)) {
        return answerOf(asked, sides.left.value(0, -1), sides.right.value(0, -1), set);
    }
    const Operand &several = isLeftSeveral ? asked.left : asked.right;
    const bool isAll = several.kind == Operand::Kind::AllOf;
    Answer answer = isAll ? Answer::Yes : Answer::No;
    for (const int leaf : isLeftSeveral ? sides.left : sides.right) {
        const Answer one = answerOf(asked, isLeftSeveral ? leaf : sides.left.value(0, -1),
                                    isLeftSeveral ? sides.right.value(0, -1) : leaf, set);
        answer = isAll ? std::min(answer, one) : std::max(answer, one);
    }
    return answer;
}

Answer Expectation::answerOf(const Condition &condition, int left, int right,
                             const ExpectedSet &set) const
{
    if (condition.kind == Condition::Kind::State) {
        return stateAnswer(condition, set.values[left]);
    }
    const auto content = contentOf(condition.left, left, set);
    if (!content) {
        return Answer::Unknown;
    }
    if (condition.kind == Condition::Kind::Truth) {
        return toAnswer(content->truth);
    }
    const auto other = contentOf(condition.right, right, set);
    const auto order = other ? orderOf(*content, *other) : std::nullopt;
    return order ? toAnswer(isTrueFor(condition.comparison, *order)) : Answer::Unknown;
}

QVector<int> Expectation::leavesFor(int condition, Answer wished, const ExpectedSet &set) const
{
    const Condition &asked = m_expression.conditions[condition];
    const Sides &sides = m_sides[static_cast<std::size_t>(condition)];
    QVector<int> leaves;
    for (const int left : sides.left) {
        const bool isKept = !isSeveral(asked.left)
                            || answerOf(asked, left, sides.right.value(0, -1), set) != wished;
        if (isKept) {
            leaves.append(left);
        }
    }
    for (const int right : sides.right) {
        const bool isKept = !isSeveral(asked.right)
                            || answerOf(asked, sides.left.value(0, -1), right, set) != wished;
        if (isKept) {
            leaves.append(right);
        }
    }
    return leaves;
}
