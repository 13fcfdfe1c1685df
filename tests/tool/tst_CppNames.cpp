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
    void numberedNameFollowsTheRule();
    void manyNamesThatWouldBeTheSameAreNumberedInOneGo();
    void orderDoesNotMatter();
    void takenNamesAreNotGiven();
    void namespaceIsNothingThatIsThere_data();
    void namespaceIsNothingThatIsThere();
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
    // A name without small letters may be a macro of any header.
    row("SLOT", "SLOT_");
    row("EINTR", "EINTR_");
    row("SEEK_SET", "SEEK_SET_");
    row("PT-100", "PT_100_");
    row("I", "I_");
    row("PT100a", "PT100a");
    row("alloca", "alloca_");
    row("offsetof", "offsetof_");
    row("st_mtime", "st_mtime_");
    row("PRId64", "PRId64_");
    row("SYS_read", "SYS_read_");
    row("qDebug", "qDebug_");
    row("qint64", "qint64_");
    // Functions are no macros: a member may be called so.
    row("time", "time");
    row("index", "index");
    row("level", "level");
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

void tst_CppNames::numberedNameFollowsTheRule()
{
    const QHash<QString, QString> expected{{"A-B", "A_B_"}, {"A_B", "A_B_2_"}};

    QCOMPARE(CppNames::uniqueIdentifiers(expected.keys(), {}), expected);
}

/// Where each of them tried all numbers before its own, this would go on for many minutes.
void tst_CppNames::manyNamesThatWouldBeTheSameAreNumberedInOneGo()
{
    constexpr int count = 40000;
    QStringList names;
    for (int i = 0; i < count; ++i) {
        names.append(QLatin1Char('a') + QString(QChar('-')).repeated(i % 200)
                     + QString(QChar('.')).repeated(i / 200) + QLatin1Char('b'));
    }

    const auto identifiers = CppNames::uniqueIdentifiers(names, {});

    QCOMPARE(identifiers.value(QStringLiteral("ab")), QStringLiteral("ab"));
    QSet<QString> found;
    for (const auto &name : names) {
        found.insert(identifiers.value(name));
    }
    QSet<QString> expected{QStringLiteral("ab"), QStringLiteral("a_b")};
    for (int number = 2; number < count; ++number) {
        expected.insert(QStringLiteral("a_b_%1").arg(number));
    }
    QCOMPARE(found, expected);
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

void tst_CppNames::namespaceIsNothingThatIsThere_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("nameSpace");
    for (const char *name : {"tank", "Plant", "low_limit", "leaf", "nodes", "Values"}) {
        QTest::newRow(name) << name << name;
    }
    for (const char *name :
         {"time",        "index",        "remove", "select",     "div",
          "abs",         "main",         "exp",    "expf",       "read",
          "stat",        "stat64",       "uint",   "ulong",      "time_t",
          "localtime_r", "pthread_once", "y0",     "environ",    "timeval",
          "qint64",      "qHash",        "std",    "class",      "Qt",
          "QtPrivate",   "ProcessValue", "SLOT",   "RegionLock", "LayoutFingerprint"}) {
        QTest::newRow(name) << name << QString(name) + '_';
    }
}

void tst_CppNames::namespaceIsNothingThatIsThere()
{
    QFETCH(QString, name);
    QFETCH(QString, nameSpace);

    QCOMPARE(CppNames::namespaceOf(name), nameSpace);
    QVERIFY(CppNames::isNamespace("my::" + nameSpace));
    QCOMPARE(CppNames::isNamespace(name), name == nameSpace);
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
