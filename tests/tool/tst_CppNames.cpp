#include "generation/CppNames.h"

#include <QtTest>

/// The names of C++ that the names of a description get.
class tst_CppNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identifierFollowsTheRule_data();
    void identifierFollowsTheRule();
    void namesThatWouldBeTheSameAreNumbered();
    void orderDoesNotMatter();
    void takenNamesAreNotGiven();
    void namespaceIsMadeOfIdentifiers_data();
    void namespaceIsMadeOfIdentifiers();
};

void tst_CppNames::identifierFollowsTheRule_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("identifier");
    const auto row = [](const char *name, const char *identifier) {
        QTest::newRow(name) << QString::fromUtf8(name) << QString::fromLatin1(identifier);
    };
    row("speed", "speed");
    row("Speed2", "Speed2");
    row("low_limit", "low_limit");
    row("low-limit", "low_limit");
    row("low limit.1", "low_limit_1");
    row("_Reserved", "Reserved");
    row("two__lines", "two_lines");
    row("end_", "end");
    row("3rd", "n3rd");
    row("_3rd", "n3rd");
    row("", "x");
    row("-", "x");
    row("°C", "u00b0C");
    row("Größe", "Gru00f6u00dfe");
    row("😀", "u1f600");
    row("class", "class_");
    row("-class-", "class_");
    row("co_await", "co_await_");
    row("slots", "slots_");
    row("linux", "linux_");
    row("NULL", "NULL_");
    row("QString", "QString_");
    row("Q_OBJECT", "Q_OBJECT_");
    row("Quality", "Quality");
}

void tst_CppNames::identifierFollowsTheRule()
{
    QFETCH(QString, name);
    QFETCH(QString, identifier);

    QCOMPARE(CppNames::identifierOf(name), identifier);
}

void tst_CppNames::namesThatWouldBeTheSameAreNumbered()
{
    // What is an identifier keeps its name.
    const QHash<QString, QString> expected{{"a b", "a_b_3"},    {"a-b", "a_b_4"},
                                           {"a_b", "a_b"},      {"a_b_2", "a_b_2"},
                                           {"class", "class_"}, {"class-", "class_2"}};

    QCOMPARE(CppNames::uniqueIdentifiers(expected.keys(), {}), expected);
}

void tst_CppNames::orderDoesNotMatter()
{
    QCOMPARE(CppNames::uniqueIdentifiers({"a b", "a-b", "a_b"}, {}),
             CppNames::uniqueIdentifiers({"a_b", "a-b", "a b"}, {}));
}

void tst_CppNames::takenNamesAreNotGiven()
{
    QCOMPARE(CppNames::uniqueIdentifiers({"pump"}, {"pump"}).value("pump"), QString("pump_2"));
}

void tst_CppNames::namespaceIsMadeOfIdentifiers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isNamespace");
    QTest::newRow("one") << "plant" << true;
    QTest::newRow("two") << "plant::tank" << true;
    QTest::newRow("none") << "" << false;
    QTest::newRow("end") << "plant::" << false;
    QTest::newRow("blank") << "my plant" << false;
    QTest::newRow("keyword") << "my::class" << false;
    QTest::newRow("digit") << "3d" << false;
    QTest::newRow("single colon") << "a:b" << false;
}

void tst_CppNames::namespaceIsMadeOfIdentifiers()
{
    QFETCH(QString, text);
    QFETCH(bool, isNamespace);

    QCOMPARE(CppNames::isNamespace(text), isNamespace);
}

QTEST_GUILESS_MAIN(tst_CppNames)
#include "tst_CppNames.moc"
