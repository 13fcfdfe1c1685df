#pragma once

#include "descriptions/DescriptionSource.h"
#include "expressions/Expression.h"

#include <QVector>

#include <chrono>
#include <optional>
#include <vector>

/// What an expression is asked of: one consistent set.
struct ExpectedSet
{
    QVector<ProcessValue> values; ///< of the leaves of the expectation
    /// Since it was published; none where that cannot be known.
    std::optional<std::chrono::microseconds> age;
};

/// What an expression says about one set.
struct ExpectationResult
{
    std::vector<Answer> ofConditions;
    std::vector<Answer> ofSteps;

    bool holds() const { return ofSteps.back() == Answer::Yes; }
};

/// An expression and the leaves of a description that it speaks of. Needs no region.
class Expectation
{
public:
    /// What can be compared with each other.
    enum class ContentKind { Number, Text, Truth, Duration };

    /// Looks everything over: URLs, and whether what is compared can be. Throws an ExpressionError.
    Expectation(const QString &text, const DescriptionSource &description);

    const Expression &expression() const { return m_expression; }
    /// Each of them once.
    const QVector<Leaf> &leaves() const { return m_leaves; }
    bool usesAge() const;

    ExpectationResult resultOf(const ExpectedSet &set) const;
    /// Which leaves, as indices of leaves(), the condition speaks of. Of all() and any() those alone that
    /// kept it from being @p wished.
    QVector<int> leavesFor(int condition, Answer wished, const ExpectedSet &set) const;

private:
    struct Sides
    {
        QVector<int> left;
        QVector<int> right;
    };

    using NamedKind = QPair<QString, ContentKind>;

    QVector<int> addLeaves(const Operand &operand, const DescriptionSource &description);
    void check(const Condition &condition, const Sides &sides,
               const DescriptionSource &description) const;
    QVector<NamedKind> kindsOf(const Operand &operand, const QVector<int> &places) const;
    void checkKinds(const Condition &condition, const Sides &sides) const;

    Answer answerOf(int condition, const ExpectedSet &set) const;
    Answer answerOf(const Condition &condition, int left, int right, const ExpectedSet &set) const;

    Expression m_expression;
    QVector<Leaf> m_leaves;
    QHash<const ProcessDataValue *, int> m_places; ///< of the leaves
    std::vector<Sides> m_sides;                    ///< of the conditions
};
