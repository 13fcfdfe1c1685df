#include "descriptions/UrlPattern.h"
#include "region/UrlChoice.h"

#include <QtTest>

/// Patterns of the programs of exits/ mean what they mean to the tool.
class tst_UrlChoice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choosesAsTheToolDoes();
    void oneOfManyIsEnough();
    void noPatternChoosesNothing();
    void patternThatLeadsNowhereIsFound();
    void manyStarsAreNoTrouble();
};

void tst_UrlChoice::choosesAsTheToolDoes()
{
    const QStringList patterns{"a",     "a/b",  "*",       "**",    "a/*",   "a/**", "**/c",
                               "a*",    "*b/c", "a/**/c",  "/a//b", "**/**", "***",  "a/**b",
                               "a.b",   "(",    "[ab]",    "+",     "",      "/",    "a/b/c/d",
                               "*/*/c", "b*b",  "**/b/**", "A",     "a/*/c", "\\",   "ä*"};
    const QStringList urls{"a",       "a/b",  "a/b/c", "ab", "b",    "b/c",  "ab/c",
                           "a/x/y/c", "a.b",  "axb",   "(",  "[ab]", "c",    "bb",
                           "bxb",     "a/bb", "x/b/y", "\\", "äb",   "a\nb", "A"};
    int chosen = 0;
    for (const auto &pattern : patterns) {
        const UrlChoice choice(QStringList{pattern});
        const UrlPattern tool(pattern);
        for (const auto &url : urls) {
            QVERIFY2(choice.leadsTo(url) == tool.leadsTo(url),
                     qPrintable(pattern + QLatin1Char(' ') + url));
            chosen += choice.leadsTo(url) ? 1 : 0;
        }
    }
    QVERIFY(chosen > patterns.size());
}

void tst_UrlChoice::oneOfManyIsEnough()
{
    const UrlChoice choice({QStringLiteral("a"), QStringLiteral("b/*")});

    QVERIFY(choice.leadsTo(QStringLiteral("a/x")));
    QVERIFY(choice.leadsTo(QStringLiteral("b/x")));
    QVERIFY(!choice.leadsTo(QStringLiteral("b")));
}

void tst_UrlChoice::noPatternChoosesNothing()
{
    QVERIFY(UrlChoice().isEmpty());
    QVERIFY(!UrlChoice().leadsTo(QStringLiteral("a")));
}

void tst_UrlChoice::patternThatLeadsNowhereIsFound()
{
    const UrlChoice choice({QStringLiteral("a"), QStringLiteral("c"), QStringLiteral("d")});

    QCOMPARE(choice.findUnused({QStringLiteral("a/b"), QStringLiteral("d")}), QStringLiteral("c"));
    QCOMPARE(UrlChoice({QStringLiteral("a")}).findUnused({QStringLiteral("a")}), QString());
}

void tst_UrlChoice::manyStarsAreNoTrouble()
{
    constexpr int many = 2000;
    const QString stars = QStringLiteral("a*").repeated(many);
    const UrlChoice one({stars + QLatin1Char('x')});
    const UrlChoice two({QStringLiteral("**/a/").repeated(many) + QLatin1Char('x')});

    QVERIFY(!one.leadsTo(QString(3 * many, QLatin1Char('a'))));
    QVERIFY(one.leadsTo(QString(3 * many, QLatin1Char('a')) + QLatin1Char('x')));
    QVERIFY(!two.leadsTo(QStringLiteral("a/").repeated(3 * many) + QLatin1Char('y')));
    QVERIFY(two.leadsTo(QStringLiteral("a/").repeated(3 * many) + QLatin1Char('x')));
}

QTEST_GUILESS_MAIN(tst_UrlChoice)
#include "tst_UrlChoice.moc"
