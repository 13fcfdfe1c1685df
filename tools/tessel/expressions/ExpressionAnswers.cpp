#include "expressions/Expression.h"

#include <algorithm>

namespace {

using Kind = ExpressionStep::Kind;

Answer opposite(Answer answer)
{
    switch (answer) {
    case Answer::No: return Answer::Yes;
    case Answer::Yes: return Answer::No;
    case Answer::Unknown: break;
    }
    return Answer::Unknown;
}

/// How a step is looked at by what it is part of.
enum class Wish { Nothing, Yes, No };

Wish oppositeWish(Wish wish)
{
    return wish == Wish::Yes ? Wish::No : Wish::Yes;
}

bool isMet(Answer answer, Wish wish)
{
    return answer == (wish == Wish::Yes ? Answer::Yes : Answer::No);
}

} // namespace

std::vector<Answer> answersOf(const Expression &expression, const std::vector<Answer> &ofConditions)
{
    std::vector<Answer> answers;
    answers.reserve(expression.steps.size());
    const auto answerOf = [&](int step) { return answers[static_cast<std::size_t>(step)]; };
    for (const auto &step : expression.steps) {
        switch (step.kind) {
        case Kind::Condition:
            answers.push_back(ofConditions[static_cast<std::size_t>(step.left)]);
            break;
        case Kind::Not: answers.push_back(opposite(answerOf(step.left))); break;
        case Kind::And:
            answers.push_back(std::min(answerOf(step.left), answerOf(step.right)));
            break;
        case Kind::Or:
            answers.push_back(std::max(answerOf(step.left), answerOf(step.right)));
            break;
        }
    }
    return answers;
}

QVector<FailedCondition> failedConditions(const Expression &expression,
                                          const std::vector<Answer> &answers)
{
    const auto &steps = expression.steps;
    std::vector<Wish> wishes(steps.size(), Wish::Nothing);
    wishes.back() = Wish::Yes;
    QVector<FailedCondition> failed;
    for (std::size_t i = steps.size(); i-- > 0;) {
        // What met its wish is to blame for nothing, and nothing inside it is.
        if (wishes[i] == Wish::Nothing || isMet(answers[i], wishes[i])) {
            continue;
        }
        if (steps[i].kind == Kind::Condition) {
            failed.append({steps[i].left, wishes[i] == Wish::No});
            continue;
        }
        const Wish wish = steps[i].kind == Kind::Not ? oppositeWish(wishes[i]) : wishes[i];
        wishes[static_cast<std::size_t>(steps[i].left)] = wish;
        if (steps[i].kind != Kind::Not) {
            wishes[static_cast<std::size_t>(steps[i].right)] = wish;
        }
    }
    std::reverse(failed.begin(), failed.end());
    return failed;
}
