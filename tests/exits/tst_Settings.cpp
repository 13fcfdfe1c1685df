#include "service/Refusal.h"
#include "service/Settings.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

ProgramSyntax syntax()
{
    using Type = SettingSyntax::Type;
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-some");
    syntax.summary = QStringLiteral("Something.");
    syntax.settings = {
        {QStringLiteral("listen"), Type::Text, QStringLiteral("ADDRESS"), QStringLiteral("Where."),
         QStringLiteral("here")},
        {QStringLiteral("count"), Type::Number, QStringLiteral("N"), QStringLiteral("How many."),
         QStringLiteral("5"), 1, 10},
        {QStringLiteral("quiet"), Type::Flag, {}, QStringLiteral("Silence."), QStringLiteral("no")},
        {QStringLiteral("url"), Type::List, QStringLiteral("URL"), QStringLiteral("Which."), {}},
        {QStringLiteral("once"),
         Type::Flag,
         {},
         QStringLiteral("Once."),
         QStringLiteral("no"),
         0,
         0,
         true}};
    syntax.sections = {
        {QStringLiteral("report"),
         QStringLiteral("URL"),
         {{QStringLiteral("deadband"), Type::Number, {}, {}, QStringLiteral("0"), 0, 100}}},
        {QStringLiteral("primary"), {}, {}}};
    return syntax;
}

/// What reading it is refused with; empty if it is not.
QString refusalOfText(const QByteArray &text)
{
    try {
        Settings::fromText(syntax(), text, QStringLiteral("some.conf"));
    } catch (const Refusal &refusal) {
        return refusal.code == ExitCode::WrongUse ? refusal.text : QStringLiteral("another code");
    }
    return {};
}

QString refusalOfWords(const QStringList &words)
{
    try {
        Settings::fromCommandLine(syntax(), words);
    } catch (const Refusal &refusal) {
        return QStringLiteral("%1 %2").arg(QString::number(static_cast<int>(refusal.code)),
                                           refusal.text);
    }
    return {};
}

} // namespace

/// Configuration files and command lines of the programs of exits/.
class tst_Settings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void usualValuesHoldWithoutAny();
    void fileIsReadWithCommentsAndBlanks();
    void sectionsKeepTheirOrder();
    void mistakeInAFileHasItsPlace_data();
    void mistakeInAFileHasItsPlace();
    void optionWinsOverTheFile();
    void mistakeOnTheCommandLineIsNamed_data();
    void mistakeOnTheCommandLineIsNamed();
    void severalDescriptionsStandWhereTheyAreTaken();
    void noDescriptionStandsWhereNoneIsTaken();
    void optionHasALetter();
    void fileThatIsTooLargeIsRefused();
    void helpHasEachSetting();
};

void tst_Settings::usualValuesHoldWithoutAny()
{
    const Settings settings = Settings::fromCommandLine(syntax(), {});

    QCOMPARE(settings.settings().text(QStringLiteral("listen")), QStringLiteral("here"));
    QCOMPARE(settings.settings().number(QStringLiteral("count")), 5);
    QCOMPARE(settings.settings().flag(QStringLiteral("quiet")), false);
    QCOMPARE(settings.settings().list(QStringLiteral("url")), QStringList());
    QVERIFY(!settings.settings().isSet(QStringLiteral("listen")));
    QCOMPARE(settings.positional(), QString());
}

void tst_Settings::fileIsReadWithCommentsAndBlanks()
{
    const Settings settings = Settings::fromText(
        syntax(),
        "\xef\xbb\xbf# head\n\n  listen =  a = b  \r\n\tcount=10\nquiet=yes\nurl = x/**\n#url = "
        "y\nurl = z",
        QStringLiteral("some.conf"));

    QCOMPARE(settings.settings().text(QStringLiteral("listen")), QStringLiteral("a = b"));
    QCOMPARE(settings.settings().number(QStringLiteral("count")), 10);
    QCOMPARE(settings.settings().flag(QStringLiteral("quiet")), true);
    QCOMPARE(settings.settings().list(QStringLiteral("url")),
             (QStringList{QStringLiteral("x/**"), QStringLiteral("z")}));
}

void tst_Settings::sectionsKeepTheirOrder()
{
    const Settings settings = Settings::fromText(
        syntax(), "listen = a\n[report  b/** ]\ndeadband = 7\n[primary]\n[report c]\n",
        QStringLiteral("some.conf"));

    QCOMPARE(settings.sections().size(), 3);
    QCOMPARE(settings.sections()[0].name, QStringLiteral("report"));
    QCOMPARE(settings.sections()[0].argument, QStringLiteral("b/**"));
    QCOMPARE(settings.sections()[0].settings.number(QStringLiteral("deadband")), 7);
    QCOMPARE(settings.sections()[1].name, QStringLiteral("primary"));
    QCOMPARE(settings.sections()[1].argument, QString());
    QCOMPARE(settings.sections()[2].argument, QStringLiteral("c"));
    QCOMPARE(settings.sections()[2].settings.number(QStringLiteral("deadband")), 0);
}

void tst_Settings::mistakeInAFileHasItsPlace_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("refusal");

    const auto row = [](const char *name, const QByteArray &text, const char *refusal) {
        QTest::newRow(name) << text << QString::fromUtf8(refusal);
    };
    row("slip in a key", "\n  lisen = a",
        "some.conf:2:3: unknown key 'lisen' (did you mean 'listen'?)");
    row("another key", "zzzzzzzz = a", "some.conf:1:1: unknown key 'zzzzzzzz'");
    row("key of another section", "[report a]\nlisten = b", "some.conf:2:1: unknown key 'listen'");
    row("only an option", "once = yes", "some.conf:1:1: unknown key 'once'");
    row("no value", "listen =", "some.conf:1:9: 'listen' has no value");
    row("no key and value", "listen",
        "some.conf:1:1: is no 'key = value'; a comment begins with "
        "'#'");
    row("no number", "count = five",
        "some.conf:1:9: 'count' takes a whole number from 1 to 10, not 'five'");
    row("number below", "count = 0",
        "some.conf:1:9: 'count' takes a whole number from 1 to 10, not '0'");
    row("number above", "count=11",
        "some.conf:1:7: 'count' takes a whole number from 1 to 10, not '11'");
    row("no flag", "quiet = true", "some.conf:1:9: 'quiet' takes yes or no, not 'true'");
    row("twice", "count = 1\ncount = 1", "some.conf:2:1: 'count' is given twice; leave one");
    row("slip in a section", "[repot a]",
        "some.conf:1:2: unknown section 'repot' (did you mean 'report'?)");
    row("section without its argument", "[report]",
        "some.conf:1:2: a section [report] takes one URL behind its name");
    row("section with an argument", "[primary a]",
        "some.conf:1:2: a section [primary] takes nothing behind its name");
    row("open section", " [primary", "some.conf:1:10: a section ends with ']'");
    row("character zero", QByteArray("listen = a\0b", 12),
        "some.conf:1:11: holds a character 0; a configuration is plain text");
    row("no UTF-8", "listen = \xff", "some.conf: is no UTF-8 text; save it as such");
    row("half a character", "listen = \xc3", "some.conf: is no UTF-8 text; save it as such");
}

void tst_Settings::mistakeInAFileHasItsPlace()
{
    QFETCH(QByteArray, text);

    QTEST(refusalOfText(text), "refusal");
}

void tst_Settings::optionWinsOverTheFile()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("some.conf"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("listen = from-file\ncount = 2\nurl = a\nurl = b\n");
    file.close();

    const Settings settings = Settings::fromCommandLine(
        syntax(), {QStringLiteral("--listen=typed"), QStringLiteral("--url"), QStringLiteral("c"),
                   QStringLiteral("--once"), QStringLiteral("--config"), path, QStringLiteral("--"),
                   QStringLiteral("-odd.process.json")});

    QCOMPARE(settings.settings().text(QStringLiteral("listen")), QStringLiteral("typed"));
    QCOMPARE(settings.settings().number(QStringLiteral("count")), 2);
    QCOMPARE(settings.settings().list(QStringLiteral("url")), QStringList(QStringLiteral("c")));
    QVERIFY(settings.settings().flag(QStringLiteral("once")));
    QCOMPARE(settings.positional(), QStringLiteral("-odd.process.json"));
}

void tst_Settings::mistakeOnTheCommandLineIsNamed_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("refusal");

    const auto row = [](const char *name, const QString &words, const char *refusal) {
        QTest::newRow(name) << words.split(QLatin1Char(' ')) << QString::fromUtf8(refusal);
    };
    row("slip", QStringLiteral("--lisen a"),
        "2 unknown option '--lisen' (did you mean '--listen'?); see 'tessel-some --help'");
    row("one dash", QStringLiteral("-x"), "2 unknown option '-x'; see 'tessel-some --help'");
    row("no value", QStringLiteral("--listen"),
        "2 --listen needs a value; see 'tessel-some --help'");
    row("empty value", QStringLiteral("--listen="),
        "2 --listen has no value; see 'tessel-some --help'");
    row("no number", QStringLiteral("--count x"),
        "2 --count takes a whole number from 1 to 10, not 'x'; see 'tessel-some --help'");
    row("two descriptions", QStringLiteral("a b"),
        "2 one description at a time, not 'b' as well as 'a'; see 'tessel-some --help'");
    row("empty argument", QString(),
        "2 an empty argument names no description; see 'tessel-some --help'");
    row("no such file", QStringLiteral("--config /nowhere/x.conf"),
        "3 /nowhere/x.conf: no such configuration file");
    row("folder", QStringLiteral("--config /"), "3 /: no such configuration file");
}

void tst_Settings::mistakeOnTheCommandLineIsNamed()
{
    QFETCH(QStringList, words);

    QTEST(refusalOfWords(words), "refusal");
}

void tst_Settings::severalDescriptionsStandWhereTheyAreTaken()
{
    ProgramSyntax several = syntax();
    several.takesSeveral = true;

    const Settings settings = Settings::fromCommandLine(
        several, {QStringLiteral("b"), QStringLiteral("--quiet"), QStringLiteral("a")});

    QCOMPARE(settings.positionals(), (QStringList{QStringLiteral("b"), QStringLiteral("a")}));
    QCOMPARE(settings.positional(), QStringLiteral("b"));
    QVERIFY(Settings::helpText(several).startsWith(
        QLatin1String("Usage: tessel-some [OPTION...] FILE|DIR...\n")));
    QVERIFY(Settings::helpText(syntax()).startsWith(
        QLatin1String("Usage: tessel-some [OPTION...] FILE|DIR\n")));
}

void tst_Settings::noDescriptionStandsWhereNoneIsTaken()
{
    ProgramSyntax none = syntax();
    none.takesNone = true;

    QVERIFY(Settings::helpText(none).startsWith(QLatin1String("Usage: tessel-some [OPTION...]\n")));
    try {
        Settings::fromCommandLine(none, {QStringLiteral("plant")});
        QFAIL("was taken");
    } catch (const Refusal &refusal) {
        QCOMPARE(refusal.text, QStringLiteral("'plant' is too much; it takes no description; see "
                                              "'tessel-some --help'"));
    }
}

void tst_Settings::optionHasALetter()
{
    ProgramSyntax lettered = syntax();
    SettingSyntax output{QStringLiteral("output"),
                         SettingSyntax::Type::Text,
                         QStringLiteral("DIR"),
                         QStringLiteral("Where to."),
                         {}};
    output.letter = QLatin1Char('o');
    lettered.settings.append(output);

    const Settings settings = Settings::fromCommandLine(
        lettered, {QStringLiteral("-o"), QStringLiteral("there")});

    QCOMPARE(settings.settings().text(QStringLiteral("output")), QStringLiteral("there"));
    QVERIFY(Settings::helpText(lettered).contains(QLatin1String("  -o, --output DIR ")));
    QVERIFY_EXCEPTION_THROWN(
        Settings::fromCommandLine(syntax(), {QStringLiteral("-o"), QStringLiteral("there")}),
        Refusal);
}

void tst_Settings::fileThatIsTooLargeIsRefused()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("large.conf"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(Settings::sm_mostBytes + 1, '#'));
    file.close();

    QCOMPARE(
        refusalOfWords({QStringLiteral("--config"), path}),
        QStringLiteral("9 %1: is larger than 1048576 bytes; is it a configuration?").arg(path));
}

void tst_Settings::helpHasEachSetting()
{
    const QString help = Settings::helpText(syntax());

    QVERIFY2(
        help.startsWith(QStringLiteral("Usage: tessel-some [OPTION...] FILE|DIR\n\nSomething.")),
        qPrintable(help));
    for (const auto &setting : syntax().settings) {
        QVERIFY(help.contains(QStringLiteral("\n  --") + setting.name));
    }
    QVERIFY(help.contains(QStringLiteral("How many (5).\n")));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_Settings.moc"
