#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"
#include "expressions/ExactNumber.h"
#include "text/ExitCode.h"

#include <QString>
#include <QVector>

#include <chrono>
#include <vector>

/// Where something stands in the text of an expression, in UTF-16 units.
struct TextPlace
{
    int begin = 0;
    int end = 0; ///< behind it
};

/// Why an expression cannot be used. Thrown.
struct ExpressionError
{
    TextPlace place;
    QString reason;
    ExitCode code = ExitCode::WrongUse;
};

enum class Comparison { Less, LessOrEqual, Equal, NotEqual, GreaterOrEqual, Greater };

/// One side of a comparison.
struct Operand
{
    enum class Kind {
        Url,   ///< one leaf
        AllOf, ///< the leaves of a pattern, each of which has to meet the condition
        AnyOf, ///< the same, of which one has to
        Age,   ///< time since the set was published
        Number,
        Duration,
        Text,
        Truth
    };

    Kind kind = Kind::Url;
    TextPlace place;
    QString text; ///< a URL, a pattern or a text
    ExactNumber number;
    std::chrono::microseconds duration{0};
    bool truth = false;

    bool speaksOfLeaves() const
    {
        return kind == Kind::Url || kind == Kind::AllOf || kind == Kind::AnyOf;
    }
};

/// What an expression asks of values. Joined by and, or and not.
struct Condition
{
    enum class Kind {
        Comparison,
        State, ///< whether left has the state, or another one if isNegated
        Truth  ///< whether left is true
    };

    Kind kind = Kind::Comparison;
    TextPlace place;
    Operand left;
    Comparison comparison = Comparison::Equal;
    Operand right;
    bool isNegated = false;
    /// None for an error of any kind.
    std::optional<ProcessDataDefinitions::ErrorTypes> state;
};

/// What an expression is made of, each step behind those that it joins; the last one is the whole.
struct ExpressionStep
{
    enum class Kind { Condition, Not, And, Or };

    Kind kind = Kind::Condition;
    int left = -1;  ///< index of a step, or of the condition
    int right = -1; ///< index of a step, of And and Or
};

/// A parsed expression, without anything of the leaves that it speaks of. A value class.
struct Expression
{
    QString text;
    QVector<Condition> conditions;
    std::vector<ExpressionStep> steps;

    /// A piece of the text.
    QString textAt(const TextPlace &place) const
    {
        return text.mid(place.begin, place.end - place.begin);
    }
};

/// Throws an ExpressionError. Needs no stack, however deep the brackets are.
Expression parseExpression(const QString &text);

/// What becomes of a condition. Unknown where a value that it needs is not valid or no number: so is what
/// it would be turned to by `not`.
enum class Answer { No, Unknown, Yes };

/// The answer of each step, from those of the conditions.
std::vector<Answer> answersOf(const Expression &expression,
                              const std::vector<Answer> &ofConditions);

/// A condition that kept the whole from being true.
struct FailedCondition
{
    int condition;
    bool isNegated; ///< it was not to be true
};

/// In the order of the text; empty if the last of @p answers, which are those of the steps, is yes.
QVector<FailedCondition> failedConditions(const Expression &expression,
                                          const std::vector<Answer> &answers);
