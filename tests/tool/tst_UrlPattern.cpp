#include "descriptions/UrlPattern.h"

#include <QRandomGenerator>
#include <QtTest>

namespace {

/// Every pattern that a URL can be compared with, by trying all ways.
bool leadsToPlainly(const QStringList &pattern, const QStringList &pieces)
{
    if (pattern.isEmpty()) {
        return true;
    }
    if (pattern.constFirst() == QLatin1String("**")) {
        for (int skipped = 0; skipped <= pieces.size(); ++skipped) {
            if (leadsToPlainly(pattern.mid(1), pieces.mid(skipped))) {
                return true;
            }
        }
        return false;
    }
    if (pieces.isEmpty()) {
        return false;
    }
    const QString expression = QRegularExpression::escape(pattern.constFirst())
                                   .replace(QLatin1String("\\*"), QLatin1String(".*"));
    return QRegularExpression(QRegularExpression::anchoredPattern(expression))
               .match(pieces.constFirst())
               .hasMatch()
           && leadsToPlainly(pattern.mid(1), pieces.mid(1));
}

QString randomText(QRandomGenerator &random, const char *letters, int most)
{
    QString text;
    const int size = random.bounded(1, most + 1);
    const int kinds = static_cast<int>(qstrlen(letters));
    for (int i = 0; i < size; ++i) {
        text += QLatin1Char(letters[random.bounded(kinds)]);
    }
    return text;
}

QString randomUrl(QRandomGenerator &random, const char *letters, int mostPieces)
{
    QStringList pieces;
    const int size = random.bounded(1, mostPieces + 1);
    for (int i = 0; i < size; ++i) {
        pieces.append(randomText(random, letters, 4));
    }
    return pieces.join(QLatin1Char('/'));
}

} // namespace

/// Which URLs a pattern names.
class tst_UrlPattern : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leadsTo_data();
    void leadsTo();
    void emptyOneLeadsNowhere();
    void manyStarsComeToAnEnd();
    void agreesWithTryingAllWays();
    void mayLeadInto_data();
    void mayLeadInto();
    void whatIsLedToHasNodesThatMayBeLedInto();
};

void tst_UrlPattern::leadsTo_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("expected");

    QTest::newRow("itself") << "pump/speed"
                            << "pump/speed" << true;
    QTest::newRow("a leaf below") << "pump"
                                  << "pump/speed" << true;
    QTest::newRow("another") << "pump"
                             << "pumps/speed" << false;
    QTest::newRow("what lies above") << "pump/speed"
                                     << "pump" << false;
    QTest::newRow("slashes") << "//pump//speed/"
                             << "pump/speed" << true;
    QTest::newRow("one level") << "*/speed"
                               << "pump/speed" << true;
    QTest::newRow("one level, not two") << "*/speed"
                                        << "a/pump/speed" << false;
    QTest::newRow("one level, not none") << "*/speed"
                                         << "speed" << false;
    QTest::newRow("one level for all below") << "*"
                                             << "a/b/c" << true;
    QTest::newRow("part of a name") << "channel*/value"
                                    << "channel12/value" << true;
    QTest::newRow("none of a name") << "channel*"
                                    << "channel" << true;
    QTest::newRow("middle of a name") << "c*l*2"
                                      << "channel12" << true;
    QTest::newRow("end of a name") << "*12"
                                   << "channel123" << false;
    QTest::newRow("stars do not pass a slash") << "a*c"
                                               << "a/c" << false;
    QTest::newRow("any depth") << "**/speed"
                               << "a/b/c/speed" << true;
    QTest::newRow("any depth, none") << "**/speed"
                                     << "speed" << true;
    QTest::newRow("any depth, within") << "a/**/d"
                                       << "a/b/c/d" << true;
    QTest::newRow("any depth, within, none") << "a/**/d"
                                             << "a/d" << true;
    QTest::newRow("any depth, other end") << "a/**/d"
                                          << "a/b/c" << false;
    QTest::newRow("any depth below a level") << "**/*/speed"
                                             << "speed" << false;
    QTest::newRow("everything below") << "a/**"
                                      << "a/b" << true;
    QTest::newRow("everything") << "**"
                                << "a" << true;
    QTest::newRow("the first that fits is not the last") << "**/a/b"
                                                         << "a/a/b" << true;
    QTest::newRow("three stars are a name") << "***"
                                            << "a" << true;
    QTest::newRow("capital letters") << "Pump*"
                                     << "pump" << false;
    QTest::newRow("other signs are themselves") << "a.c?"
                                                << "abcd" << false;
}

void tst_UrlPattern::leadsTo()
{
    QFETCH(const QString, pattern);
    QFETCH(const QString, url);
    QFETCH(const bool, expected);

    QCOMPARE(UrlPattern(pattern).leadsTo(url), expected);
}

void tst_UrlPattern::emptyOneLeadsNowhere()
{
    QVERIFY(!UrlPattern(QString()).leadsTo(QStringLiteral("a")));
    QVERIFY(!UrlPattern(QStringLiteral("//")).leadsTo(QStringLiteral("a")));
}

void tst_UrlPattern::manyStarsComeToAnEnd()
{
    const QString name(2000, QLatin1Char('a'));
    const QString url =
        QStringList(QVector<QString>(500, QStringLiteral("a")).toList()).join(QLatin1Char('/'));

    QVERIFY(!UrlPattern(QStringLiteral("*a").repeated(50) + QLatin1Char('b')).leadsTo(name));
    QVERIFY(!UrlPattern(QStringLiteral("**/a/").repeated(50) + QLatin1Char('b')).leadsTo(url));
}

void tst_UrlPattern::agreesWithTryingAllWays()
{
    constexpr int comparisons = 20000;
    const quint32 seed = QRandomGenerator::global()->generate();
    QRandomGenerator random(seed);
    int matches = 0;
    for (int i = 0; i < comparisons; ++i) {
        const QString pattern = randomUrl(random, "ab**", 4);
        const QString url = randomUrl(random, "ab", 5);
        const bool expected = leadsToPlainly(pattern.split(QLatin1Char('/')),
                                             url.split(QLatin1Char('/')));
        matches += expected ? 1 : 0;
        QVERIFY2(UrlPattern(pattern).leadsTo(url) == expected,
                 qPrintable(QStringLiteral("seed %1: '%2' and '%3'").arg(seed).arg(pattern, url)));
    }
    QVERIFY(matches > comparisons / 20);
    QVERIFY(matches < comparisons);
}

void tst_UrlPattern::mayLeadInto_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("node");
    QTest::addColumn<bool>("expected");

    QTest::newRow("the node") << "a/b"
                              << "a/b" << true;
    QTest::newRow("above it") << "a/b/c"
                              << "a" << true;
    QTest::newRow("below it") << "a"
                              << "a/b" << true;
    QTest::newRow("beside it") << "a/b"
                               << "a/c" << false;
    QTest::newRow("with the same beginning") << "ab"
                                             << "a" << false;
    QTest::newRow("a star") << "a*/b"
                            << "ax" << true;
    QTest::newRow("beside a star") << "a*/b"
                                   << "x" << false;
    QTest::newRow("behind two stars") << "a/**/c"
                                      << "a/x/y" << true;
    QTest::newRow("beside what is before two stars") << "a/**/c"
                                                     << "b" << false;
    QTest::newRow("no pattern") << ""
                                << "a" << false;
}

void tst_UrlPattern::mayLeadInto()
{
    QFETCH(QString, pattern);
    QFETCH(QString, node);
    QFETCH(bool, expected);

    QCOMPARE(UrlPattern(pattern).mayLeadInto(node), expected);
}

void tst_UrlPattern::whatIsLedToHasNodesThatMayBeLedInto()
{
    constexpr int comparisons = 20000;
    const quint32 seed = QRandomGenerator::global()->generate();
    QRandomGenerator random(seed);
    int matches = 0;
    for (int i = 0; i < comparisons; ++i) {
        const QString text = randomUrl(random, "ab**", 4);
        const QString url = randomUrl(random, "ab", 5);
        const UrlPattern pattern(text);
        if (!pattern.leadsTo(url)) {
            continue;
        }
        ++matches;
        for (int slash = url.indexOf('/'); slash >= 0; slash = url.indexOf('/', slash + 1)) {
            QVERIFY2(pattern.mayLeadInto(url.left(slash)),
                     qPrintable(QStringLiteral("seed %1: '%2' and '%3'").arg(seed).arg(text, url)));
        }
    }
    QVERIFY(matches > comparisons / 20);
}

QTEST_GUILESS_MAIN(tst_UrlPattern)
#include "tst_UrlPattern.moc"
