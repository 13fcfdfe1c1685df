#include "expressions/Expression.h"
#include "expressions/ExpressionExcerpt.h"

#include <QElapsedTimer>
#include <QtTest>

#include <memory>
#include <random>

namespace {

/// An expression that was made and not read, with its answer found in the simplest way.
struct Node
{
    enum class Kind { Condition, Not, And, Or };
    Kind kind = Kind::Condition;
    int condition = 0;
    std::unique_ptr<Node> left;
    std::unique_ptr<Node> right;
};

/// 0 no, 1 unknown, 2 yes: by the rows of the table, one after the other.
int naive(const Node &node, const std::vector<Answer> &answers)
{
    if (node.kind == Node::Kind::Condition) {
        return static_cast<int>(answers[static_cast<std::size_t>(node.condition)]);
    }
    const int left = naive(*node.left, answers);
    if (node.kind == Node::Kind::Not) {
        return 2 - left;
    }
    const int right = naive(*node.right, answers);
    if (node.kind == Node::Kind::And) {
        return left == 0 || right == 0 ? 0 : left == 2 && right == 2 ? 2 : 1;
    }
    return left == 2 || right == 2 ? 2 : left == 0 && right == 0 ? 0 : 1;
}

/// Makes trees and writes them down, with no more brackets than it takes or with some more.
class Maker
{
public:
    explicit Maker(unsigned int seed) : m_random(seed) { }

    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }

    std::unique_ptr<Node> make(int depth)
    {
        auto node = std::make_unique<Node>();
        const int kind = depth == 0 ? 0 : below(4);
        node->kind = static_cast<Node::Kind>(kind);
        if (node->kind == Node::Kind::Not) {
            node->left = make(depth - 1);
        } else if (node->kind != Node::Kind::Condition) {
            node->left = make(depth - 1);
            node->right = make(depth - 1);
        }
        return node;
    }

    /// Numbers the conditions in the order of the text as well.
    QString write(Node &node, int strength, int &conditions)
    {
        const QString blank = below(4) == 0 ? QStringLiteral("  \t") : QStringLiteral(" ");
        QString text;
        int own = 3;
        switch (node.kind) {
        case Node::Kind::Condition:
            node.condition = conditions++;
            text = QStringLiteral("u%1 > 0").arg(node.condition);
            break;
        case Node::Kind::Not:
            text = QStringLiteral("not ") + write(*node.left, own, conditions);
            break;
        case Node::Kind::And:
        case Node::Kind::Or:
            own = node.kind == Node::Kind::And ? 2 : 1;
            // One after the other: the conditions are numbered on the way.
            text = write(*node.left, own, conditions) + blank;
            text += own == 2 ? QStringLiteral("and") : QStringLiteral("or");
            text += blank + write(*node.right, own + 1, conditions);
            break;
        }
        const bool isBracketed = own < strength || below(5) == 0;
        return isBracketed ? QLatin1Char('(') + text + QLatin1Char(')') : text;
    }

private:
    std::mt19937 m_random;
};

std::vector<Answer> someAnswers(Maker &maker, int count)
{
    std::vector<Answer> answers;
    for (int i = 0; i < count; ++i) {
        answers.push_back(static_cast<Answer>(maker.below(3)));
    }
    return answers;
}

/// The error of an expression as "column: reason"; empty if it has none.
QString errorOf(const QString &text)
{
    try {
        parseExpression(text);
    } catch (const ExpressionError &error) {
        return QStringLiteral("%1: %2").arg(columnOf(text, error.place)).arg(error.reason);
    }
    return {};
}

QString repeated(const char *text, int times)
{
    return QString::fromLatin1(text).repeated(times);
}

} // namespace

/// What an expression is made of, and what its answer is.
class tst_Expression : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersAreThoseOfTheSimplestWay();
    void failedConditionsAreToBlame();
    void notLeavesTheUnknownUnknown();
    void andBindsTighterThanOr();
    void conditionsAreTaken();
    void stateSpeaksOfTheLastUrl();
    void urlMayLookLikeAnything();
    void textsMayHoldQuotes();
    void errorTellsItsColumn_data();
    void errorTellsItsColumn();
    void deepBracketsNeedNoStack();
    void longExpressionTakesItsTimeOnly();
    void anyTextIsReadOrRefused();
    void excerptMarksThePlace_data();
    void excerptMarksThePlace();
};

void tst_Expression::answersAreThoseOfTheSimplestWay()
{
    Maker maker(20260105);
    for (int round = 0; round < 3000; ++round) {
        const auto root = maker.make(maker.below(7));
        int conditions = 0;
        const QString text = maker.write(*root, 0, conditions);
        const Expression expression = parseExpression(text);
        QCOMPARE(expression.conditions.size(), conditions);
        const std::vector<Answer> answers = someAnswers(maker, conditions);

        const Answer answer = answersOf(expression, answers).back();

        if (static_cast<int>(answer) != naive(*root, answers)) {
            QFAIL(qPrintable(text));
        }
    }
}

/// Were they as they should be, and the others as they are, the whole would hold.
void tst_Expression::failedConditionsAreToBlame()
{
    Maker maker(4711);
    int blamed = 0;
    for (int round = 0; round < 3000; ++round) {
        const auto root = maker.make(maker.below(6));
        int conditions = 0;
        const Expression expression = parseExpression(maker.write(*root, 0, conditions));
        std::vector<Answer> answers = someAnswers(maker, conditions);
        const std::vector<Answer> steps = answersOf(expression, answers);

        const auto failed = failedConditions(expression, steps);

        QCOMPARE(failed.isEmpty(), steps.back() == Answer::Yes);
        for (const auto &each : failed) {
            Answer &answer = answers[static_cast<std::size_t>(each.condition)];
            const Answer wished = each.isNegated ? Answer::No : Answer::Yes;
            QVERIFY(answer != wished);
            answer = wished;
            ++blamed;
        }
        QVERIFY(naive(*root, answers) == 2);
    }
    QVERIFY(blamed > 1000);
}

void tst_Expression::notLeavesTheUnknownUnknown()
{
    const Expression expression = parseExpression(QStringLiteral("not a > 0"));

    QCOMPARE(int(answersOf(expression, {Answer::Unknown}).back()), int(Answer::Unknown));
    QCOMPARE(int(answersOf(expression, {Answer::No}).back()), int(Answer::Yes));
    QCOMPARE(int(answersOf(expression, {Answer::Yes}).back()), int(Answer::No));
}

void tst_Expression::andBindsTighterThanOr()
{
    const Expression expression = parseExpression(QStringLiteral("a > 0 or b > 0 and c > 0"));

    const Answer answer = answersOf(expression, {Answer::Yes, Answer::No, Answer::No}).back();

    QCOMPARE(int(answer), int(Answer::Yes));
}

void tst_Expression::conditionsAreTaken()
{
    const QString text = QStringLiteral(
        "a/b>=-1.5 and 'x y' != c and d is not timeout and e and all(f/**) erroneous and age<2s");

    const Expression expression = parseExpression(text);

    QCOMPARE(expression.conditions.size(), 6);
    const auto &conditions = expression.conditions;
    QCOMPARE(conditions[0].left.text, QStringLiteral("a/b"));
    QVERIFY(conditions[0].comparison == Comparison::GreaterOrEqual);
    QCOMPARE(conditions[0].right.number.toDouble(), -1.5);
    QVERIFY(conditions[1].left.kind == Operand::Kind::Text);
    QCOMPARE(conditions[1].left.text, QStringLiteral("x y"));
    QVERIFY(conditions[1].comparison == Comparison::NotEqual);
    QVERIFY(conditions[2].kind == Condition::Kind::State && conditions[2].isNegated);
    QVERIFY(conditions[2].state == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QVERIFY(conditions[3].kind == Condition::Kind::Truth);
    QVERIFY(conditions[4].left.kind == Operand::Kind::AllOf && !conditions[4].state);
    QCOMPARE(conditions[4].left.text, QStringLiteral("f/**"));
    QVERIFY(conditions[5].left.kind == Operand::Kind::Age);
    QVERIFY(conditions[5].right.duration == std::chrono::seconds(2));
    QCOMPARE(expression.textAt(conditions[2].place), QStringLiteral("d is not timeout"));
}

void tst_Expression::stateSpeaksOfTheLastUrl()
{
    const Expression expression = parseExpression(
        QStringLiteral("a > b and valid and (any(c) > 5 or not overrange)"));

    QCOMPARE(expression.conditions[1].left.text, QStringLiteral("b"));
    QCOMPARE(expression.conditions[3].left.text, QStringLiteral("c"));
    QVERIFY(expression.conditions[3].left.kind == Operand::Kind::AnyOf);
}

void tst_Expression::urlMayLookLikeAnything()
{
    const Expression expression = parseExpression(QStringLiteral(
        "{a b/(c)} > 1 and {valid} is valid and {20} == {x\\}\\\\} and all({or *}) > 1"));

    QCOMPARE(expression.conditions[0].left.text, QStringLiteral("a b/(c)"));
    QCOMPARE(expression.conditions[1].left.text, QStringLiteral("valid"));
    QCOMPARE(expression.conditions[2].left.text, QStringLiteral("20"));
    QVERIFY(expression.conditions[2].left.kind == Operand::Kind::Url);
    QCOMPARE(expression.conditions[2].right.text, QStringLiteral("x}\\"));
    QCOMPARE(expression.conditions[3].left.text, QStringLiteral("or *"));
}

void tst_Expression::textsMayHoldQuotes()
{
    const Expression expression = parseExpression(
        QStringLiteral("a == \"it's \\\"x\\\"\" or a == '\\'' or a = ''"));

    QCOMPARE(expression.conditions[0].right.text, QStringLiteral("it's \"x\""));
    QCOMPARE(expression.conditions[1].right.text, QStringLiteral("'"));
    QCOMPARE(expression.conditions[2].right.text, QString());
    QVERIFY(expression.conditions[2].comparison == Comparison::Equal);
}

void tst_Expression::errorTellsItsColumn_data()
{
    QTest::addColumn<QString>("error");
    const auto add = [](const char *text, const char *error) {
        QTest::newRow(text) << QString::fromLatin1(error);
    };
    add("", "1: something is missing at the end: a URL, a number, a text in quotes, true or false");
    add("a >", "4: something is missing at the end: a URL, a number, a text in quotes, true or "
               "false");
    add("a > 1 and", "10: something is missing at the end: a URL, a number, a text in quotes, true "
                     "or false");
    add("(a > 1", "1: the closing ) is missing");
    add("a > 1)", "6: there is no '(' to be closed");
    add("a > 1 b", "7: 'and', 'or', ')' or the end is expected here");
    add("a > 1 && b", "7: 'and', 'or', ')' or the end is expected here (did you mean 'and'?)");
    add("a && b", "3: a comparison (< <= == != >= >), 'is' or a state is expected here (did you "
                  "mean 'and'?)");
    add("a || b", "3: a comparison (< <= == != >= >), 'is' or a state is expected here (did you "
                  "mean 'or'?)");
    add("1 && a", "3: a comparison (< <= == != >= >) is expected here");
    add("a > 1 || b", "7: 'and', 'or', ')' or the end is expected here (did you mean 'or'?)");
    add("a > 1 AND b", "7: 'and', 'or', ')' or the end is expected here (did you mean 'and'?)");
    add("1 < a < 2", "7: two sides are compared at a time; join comparisons with 'and'");
    add("!a", "1: '!' is no operator (did you mean 'not'?)");
    add("a } b", "3: there is no '{' to be closed");
    add("a > {b", "5: the closing } is missing");
    add("a == \"b", "6: the closing \" is missing");
    add("valid", "1: a state speaks of the URL before it, and there is none");
    add("a timeot", "3: a comparison (< <= == != >= >), 'is' or a state is expected here (did you "
                    "mean 'timeout'?)");
    add("5 and a", "3: a comparison (< <= == != >= >) is expected here");
    add("a > and", "5: a URL, a number, a text in quotes, true or false is expected here, not "
                   "'and'; a URL that looks like it stands in { }");
    add("a > )", "5: a URL, a number, a text in quotes, true or false is expected here, not ')'");
    add("all a", "5: '(' is expected behind 'all'");
    add("all(5) > 1", "5: all( ) takes a URL");
    add("any(a b) > 1", "7: ')' is expected here: any( ) takes one URL");
    add("a > 1e400", "5: no double is as large or as small as this number, and no integer");
    add("a is", "5: a state is expected here; use one of valid, erroneous, underrange, overrange, "
                "no-input, division-by-zero, incorrect-mathematic, invalid-temperature, "
                "sensor-short-circuit, sensor-breakage, timeout");
}

void tst_Expression::errorTellsItsColumn()
{
    QTEST(errorOf(QString::fromLatin1(QTest::currentDataTag())), "error");
}

void tst_Expression::deepBracketsNeedNoStack()
{
    constexpr int depth = 200000;
    const QString open = repeated("(", depth);
    const QString close = repeated(")", depth);

    const Expression bracketed = parseExpression(open + QStringLiteral("a > 1") + close);
    QCOMPARE(bracketed.steps.size(), std::size_t(1));
    const Expression negated = parseExpression(repeated("not ", depth) + QStringLiteral("a > 1"));
    QCOMPARE(int(answersOf(negated, {Answer::Yes}).back()), int(Answer::Yes));
    const Expression both = parseExpression(repeated("not(", depth + 1) + QStringLiteral("a > 1")
                                            + close + QLatin1Char(')'));
    const auto answers = answersOf(both, {Answer::Yes});
    QCOMPARE(int(answers.back()), int(Answer::No));
    QCOMPARE(failedConditions(both, answers).size(), 1);
    QCOMPARE(errorOf(open), QStringLiteral("%1: something is missing at the end: a URL, a number, "
                                           "a text in quotes, true or false")
                                .arg(depth + 1));
    QCOMPARE(errorOf(open + QStringLiteral("a")),
             QStringLiteral("%1: the closing ) is missing").arg(depth));
}

void tst_Expression::longExpressionTakesItsTimeOnly()
{
    constexpr int count = 20000;
    const Expression expression = parseExpression(repeated("a > 1 or a is valid and ", count)
                                                  + QStringLiteral("a > 1"));
    QCOMPARE(expression.conditions.size(), 2 * count + 1);
    const std::vector<Answer> no(2 * count + 1, Answer::No);

    const auto failed = failedConditions(expression, answersOf(expression, no));

    QCOMPARE(failed.size(), 2 * count + 1);
    QCOMPARE(failed.first().condition, 0);
    QCOMPARE(failed.last().condition, 2 * count);
}

void tst_Expression::anyTextIsReadOrRefused()
{
    const QStringList pieces{"(",
                             ")",
                             "{",
                             "}",
                             "\"",
                             "'",
                             "\\",
                             "<",
                             ">",
                             "=",
                             "!",
                             " ",
                             "and",
                             " or ",
                             "not ",
                             " is ",
                             "valid",
                             "all(",
                             "any(",
                             "age",
                             "a/b",
                             "5",
                             "1e9",
                             "500ms",
                             ".",
                             "-",
                             "*",
                             "\n",
                             QString(QChar(0)),
                             QString(QChar(0xD800)),
                             QStringLiteral("\u00e4")};
    Maker maker(99);
    int read = 0;
    for (int round = 0; round < 5000; ++round) {
        QString text;
        for (int i = maker.below(9); i >= 0; --i) {
            text += pieces[maker.below(pieces.size())];
        }
        try {
            const Expression expression = parseExpression(text);
            const std::vector<Answer> answers = someAnswers(maker, expression.conditions.size());
            QCOMPARE(answersOf(expression, answers).size(), expression.steps.size());
            ++read;
        } catch (const ExpressionError &error) {
            QVERIFY(!error.reason.isEmpty());
            QVERIFY(error.place.begin >= 0 && error.place.begin <= error.place.end
                    && error.place.end <= text.size());
            QCOMPARE(markedExcerpt(text, error.place).size(), 2);
        }
    }
    QVERIFY(read > 100);
}

void tst_Expression::excerptMarksThePlace_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("begin");
    QTest::addColumn<int>("end");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");

    QTest::newRow("word") << "a > bc" << 4 << 6 << "  a > bc"
                          << "      ^~";
    QTest::newRow("end") << "a >" << 3 << 3 << "  a >"
                         << "     ^";
    QTest::newRow("control character") << "a\n>bc" << 3 << 5 << "  a\\n>bc"
                                       << "      ^~";
    QTest::newRow("long")
        << QString(100, QLatin1Char('x')) + QStringLiteral(" > ") + QString(100, QLatin1Char('y'))
        << 103 << 203
        << "  ..." + QString(37, QLatin1Char('x')) + " > " + QString(40, QLatin1Char('y')) + "..."
        << "  " + QString(43, QLatin1Char(' ')) + "^" + QString(39, QLatin1Char('~'));
}

void tst_Expression::excerptMarksThePlace()
{
    QFETCH(QString, text);
    QFETCH(int, begin);
    QFETCH(int, end);

    const QStringList lines = markedExcerpt(text, {begin, end});

    QTEST(lines.value(0), "first");
    QTEST(lines.value(1), "second");
}

QTEST_APPLESS_MAIN(tst_Expression)
#include "tst_Expression.moc"
