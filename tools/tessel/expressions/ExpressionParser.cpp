#include "expressions/ExpressionTokens.h"
#include "text/Suggestion.h"
#include "values/StateName.h"

#include <QStringList>

#include <utility>

namespace {

using Kind = ExpressionToken::Kind;
using StepKind = ExpressionStep::Kind;

const QLatin1String validWord("valid");
const QLatin1String erroneousWord("erroneous");

QStringList stateWords()
{
    return QStringList{validWord, erroneousWord} + errorStateNames();
}

bool isWord(const ExpressionToken &token, const char *word)
{
    return token.kind == Kind::Word && token.text == QLatin1String(word);
}

bool isState(const ExpressionToken &token)
{
    return token.kind == Kind::Word && stateWords().contains(token.text);
}

bool isReserved(const ExpressionToken &token)
{
    return isState(token) || isWord(token, "and") || isWord(token, "or") || isWord(token, "not")
           || isWord(token, "is");
}

/// What waits for its right side.
struct Waiting
{
    enum class Kind { Open, Not, And, Or };
    Kind kind;
    TextPlace place;
};

/// Behind a word that is none of the language. The signs of other languages are no near misses.
QString wordHint(const QString &word, const QStringList &words)
{
    if (word == QLatin1String("&&")) {
        return QStringLiteral(" (did you mean 'and'?)");
    }
    return word == QLatin1String("||") ? QStringLiteral(" (did you mean 'or'?)")
                                       : suggestion(word, words);
}

/// Lists of its own take the place of the stack of calls, which deep brackets would use up.
class Parser
{
public:
    explicit Parser(const QString &text) : m_tokens(text)
    {
        m_expression.text = text;
        advance();
    }

    Expression parse();

private:
    void advance() { m_token = m_tokens.next(); }
    ExpressionToken take()
    {
        m_end = m_token.place.end;
        return std::exchange(m_token, m_tokens.next());
    }
    [[noreturn]] void refuse(const QString &reason) const
    {
        throw ExpressionError{m_token.place, reason};
    }

    bool takeBeforeCondition();
    void takeCondition();
    void takeBehindCondition();
    void addCondition(Condition condition, int begin);

    Operand takeOperand();
    Operand takeSeveral(Operand::Kind kind);
    void takeState(Condition &condition);
    [[noreturn]] void refuseBehind(const Operand &left) const;
    [[noreturn]] void refuseOperand() const;

    void join(Waiting::Kind until);
    void joinOne();
    void close();
    int takeStep();

    ExpressionTokens m_tokens;
    ExpressionToken m_token;
    int m_end = 0; ///< of the last one that was taken
    Expression m_expression;
    std::vector<Waiting> m_waiting;
    std::vector<int> m_complete; ///< steps that nothing has joined yet
    std::optional<Operand> m_lastNamed;
};

Expression Parser::parse()
{
    bool isConditionNext = true;
    while (isConditionNext) {
        while (takeBeforeCondition()) { }
        takeCondition();
        takeBehindCondition();
        isConditionNext = m_token.kind != Kind::End;
        if (isConditionNext) {
            const bool isAnd = isWord(m_token, "and");
            join(isAnd ? Waiting::Kind::And : Waiting::Kind::Or);
            m_waiting.push_back({isAnd ? Waiting::Kind::And : Waiting::Kind::Or, m_token.place});
            advance();
        }
    }
    join(Waiting::Kind::Open);
    if (!m_waiting.empty()) {
        throw ExpressionError{m_waiting.back().place, QStringLiteral("the closing ) is missing")};
    }
    return m_expression;
}

bool Parser::takeBeforeCondition()
{
    const bool isOpen = m_token.kind == Kind::Open;
    if (!isOpen && !isWord(m_token, "not")) {
        return false;
    }
    m_waiting.push_back({isOpen ? Waiting::Kind::Open : Waiting::Kind::Not, m_token.place});
    advance();
    return true;
}

/// Closes brackets, until an operator or the end stands there.
void Parser::takeBehindCondition()
{
    while (m_token.kind == Kind::Close) {
        close();
    }
    if (m_token.kind == Kind::End || isWord(m_token, "and") || isWord(m_token, "or")) {
        return;
    }
    if (m_token.kind == Kind::Comparison) {
        refuse(QStringLiteral("two sides are compared at a time; join comparisons with 'and'"));
    }
    const QString word = m_expression.textAt(m_token.place);
    refuse(QStringLiteral("'and', 'or', ')' or the end is expected here%1")
               .arg(wordHint(word.toLower(), {QStringLiteral("and"), QStringLiteral("or")})));
}

void Parser::takeCondition()
{
    const int begin = m_token.place.begin;
    Condition condition;
    if (isState(m_token)) {
        if (!m_lastNamed) {
            refuse(QStringLiteral("a state speaks of the URL before it, and there is none"));
        }
        condition.kind = Condition::Kind::State;
        condition.left = *m_lastNamed;
        takeState(condition);
        addCondition(condition, begin);
        return;
    }
    condition.left = takeOperand();
    const bool speaksOfLeaves = condition.left.speaksOfLeaves();
    if (m_token.kind == Kind::Comparison) {
        condition.comparison = take().comparison;
        condition.right = takeOperand();
    } else if (speaksOfLeaves && (isWord(m_token, "is") || isState(m_token))) {
        condition.kind = Condition::Kind::State;
        takeState(condition);
    } else if (speaksOfLeaves
               && (m_token.kind == Kind::End || m_token.kind == Kind::Close
                   || isWord(m_token, "and") || isWord(m_token, "or"))) {
        condition.kind = Condition::Kind::Truth;
    } else {
        refuseBehind(condition.left);
    }
    addCondition(condition, begin);
}

void Parser::refuseBehind(const Operand &left) const
{
    const QString word = m_expression.textAt(m_token.place);
    const QStringList words = stateWords()
                              + QStringList{QStringLiteral("is"), QStringLiteral("and"),
                                            QStringLiteral("or")};
    refuse(left.speaksOfLeaves()
               ? QStringLiteral("a comparison (< <= == != >= >), 'is' or a state is expected "
                                "here%1")
                     .arg(m_token.kind == Kind::Word ? wordHint(word, words) : QString())
               : QStringLiteral("a comparison (< <= == != >= >) is expected here"));
}

void Parser::refuseOperand() const
{
    if (m_token.kind == Kind::End) {
        refuse(QStringLiteral("something is missing at the end: a URL, a number, a text in quotes, "
                              "true or false"));
    }
    refuse(QStringLiteral("a URL, a number, a text in quotes, true or false is expected here, not "
                          "'%1'%2")
               .arg(m_expression.textAt(m_token.place),
                    isReserved(m_token) ? QStringLiteral("; a URL that looks like it stands in { }")
                                        : QString()));
}

Operand Parser::takeOperand()
{
    if (isReserved(m_token)) {
        refuseOperand();
    }
    Operand operand;
    operand.place = m_token.place;
    operand.text = m_token.text;
    operand.number = m_token.number;
    operand.duration = m_token.duration;
    switch (m_token.kind) {
    case Kind::Url: break;
    case Kind::Word:
        if (isWord(m_token, "all") || isWord(m_token, "any")) {
            return takeSeveral(isWord(m_token, "all") ? Operand::Kind::AllOf
                                                      : Operand::Kind::AnyOf);
        }
        if (isWord(m_token, "true") || isWord(m_token, "false")) {
            operand.kind = Operand::Kind::Truth;
            operand.truth = isWord(m_token, "true");
        } else if (isWord(m_token, "age")) {
            operand.kind = Operand::Kind::Age;
        }
        break;
    case Kind::Text: operand.kind = Operand::Kind::Text; break;
    case Kind::Number: operand.kind = Operand::Kind::Number; break;
    case Kind::Duration: operand.kind = Operand::Kind::Duration; break;
    default: refuseOperand();
    }
    take();
    if (operand.kind == Operand::Kind::Url) {
        m_lastNamed = operand;
    }
    return operand;
}

/// all(URL) or any(URL)
Operand Parser::takeSeveral(Operand::Kind kind)
{
    Operand operand;
    operand.kind = kind;
    const ExpressionToken name = take();
    if (m_token.kind != Kind::Open) {
        refuse(QStringLiteral("'(' is expected behind '%1'").arg(name.text));
    }
    take();
    if (m_token.kind != Kind::Word && m_token.kind != Kind::Url) {
        refuse(QStringLiteral("%1( ) takes a URL").arg(name.text));
    }
    operand.text = take().text;
    if (m_token.kind != Kind::Close) {
        refuse(QStringLiteral("')' is expected here: %1( ) takes one URL").arg(name.text));
    }
    take();
    operand.place = {name.place.begin, m_end};
    m_lastNamed = operand;
    return operand;
}

/// [is [not]] STATE
void Parser::takeState(Condition &condition)
{
    if (isWord(m_token, "is")) {
        take();
        condition.isNegated = isWord(m_token, "not");
        if (condition.isNegated) {
            take();
        }
    }
    if (!isState(m_token)) {
        const QString word = m_expression.textAt(m_token.place);
        refuse(QStringLiteral("a state is expected here%1; use one of %2")
                   .arg(word.isEmpty() ? QString() : suggestion(word, stateWords()),
                        stateWords().join(QStringLiteral(", "))));
    }
    const QString state = take().text;
    if (state != erroneousWord) {
        condition.state = stateFromText(state);
    }
}

void Parser::addCondition(Condition condition, int begin)
{
    condition.place = {begin, m_end};
    m_expression.steps.push_back({StepKind::Condition, m_expression.conditions.size(), -1});
    m_complete.push_back(static_cast<int>(m_expression.steps.size()) - 1);
    m_expression.conditions.append(condition);
}

/// Joins what binds at least as tightly as the operator that comes.
void Parser::join(Waiting::Kind coming)
{
    const auto binds = [&](Waiting::Kind kind) {
        return kind == Waiting::Kind::Not || kind == Waiting::Kind::And
               || (kind == Waiting::Kind::Or && coming != Waiting::Kind::And);
    };
    while (!m_waiting.empty() && binds(m_waiting.back().kind)) {
        joinOne();
    }
}

void Parser::joinOne()
{
    const Waiting::Kind kind = m_waiting.back().kind;
    m_waiting.pop_back();
    const int last = takeStep();
    if (kind == Waiting::Kind::Not) {
        m_expression.steps.push_back({StepKind::Not, last, -1});
    } else {
        const StepKind joined = kind == Waiting::Kind::And ? StepKind::And : StepKind::Or;
        m_expression.steps.push_back({joined, takeStep(), last});
    }
    m_complete.push_back(static_cast<int>(m_expression.steps.size()) - 1);
}

void Parser::close()
{
    join(Waiting::Kind::Open);
    if (m_waiting.empty()) {
        refuse(QStringLiteral("there is no '(' to be closed"));
    }
    m_waiting.pop_back();
    take();
}

int Parser::takeStep()
{
    const int step = m_complete.back();
    m_complete.pop_back();
    return step;
}

} // namespace

Expression parseExpression(const QString &text)
{
    return Parser(text).parse();
}
