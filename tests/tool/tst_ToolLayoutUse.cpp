#include "LayoutCalls.h"
#include "TwoFiles.h"

#include <sys/stat.h>

/// What `tessel layout` refuses.
class tst_ToolLayoutUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileThatIsNoDescriptionIsRefused_data();
    void fileThatIsNoDescriptionIsRefused();
    void unknownUrlHasAHint();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolLayoutUse::fileThatIsNoDescriptionIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("missing") << "none.process.json"
                             << "no such file" << 3;
    QTest::newRow("empty") << "empty.process.json"
                           << "cannot be parsed: line 1, column 1: illegal value" << 9;
    QTest::newRow("a list") << "list.process.json"
                            << "cannot be parsed: key 'type' not found in JSON object" << 9;
    QTest::newRow("without leaves") << "bare.process.json"
                                    << "holds no process value; its top level must be a tree node "
                                       "with leaves below"
                                    << 9;
    QTest::newRow("another name") << "plant.json"
                                  << "no process description; its name must end in .process.json"
                                  << 9;
    QTest::newRow("a FIFO") << "fifo.process.json"
                            << "is no regular file" << 9;
    QTest::newRow("a device") << "zero.process.json"
                              << "is no regular file" << 9;
    QTest::newRow("an empty folder") << "folder"
                                     << "holds no process description; their names end in "
                                        ".process.json"
                                     << 9;
}

void tst_ToolLayoutUse::fileThatIsNoDescriptionIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    const ToolDescription description;
    description.write(QStringLiteral("empty.process.json"), "");
    description.write(QStringLiteral("list.process.json"), "[]");
    description.write(QStringLiteral("bare.process.json"), R"({"type": "treenode", "value": {}})");
    description.write(QStringLiteral("plant.json"), R"({"type": "treenode", "value": {}})");
    const QString fifo = description.path(QStringLiteral("fifo.process.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"),
                        description.path(QStringLiteral("zero.process.json"))));
    QVERIFY(QDir().mkpath(description.path(QStringLiteral("folder"))));

    const ToolResult result = layout({description.path(path)});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(description.path(path), reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolLayoutUse::unknownUrlHasAHint()
{
    ToolDescription description;
    const QString file = smallFile(description);

    const ToolResult result = layout({file, QStringLiteral("n/aa")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no element at 'n/aa' (did you mean 'n/a'?)\n").arg(file));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolLayoutUse::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no file") << QStringList() << "FILE is missing";
    QTest::newRow("typo") << QStringList{"--jsn", "f"}
                          << "unknown option '--jsn' (did you mean '--json'?)";
    QTest::newRow("no picture") << QStringList{"f", "--svg"} << "Missing value after '--svg'";
    QTest::newRow("two outputs") << QStringList{"--json", "--svg", "p", "f"}
                                 << "give --json or --svg, not both";
}

void tst_ToolLayoutUse::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = layout(arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: layout: %1; see 'tessel layout --help'\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolLayoutUse::closedPipeIsNoFailure()
{
    ToolDescription description;

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("layout"), smallFile(description)}), 0);
}

void tst_ToolLayoutUse::fullOutputIsAFailure()
{
    ToolDescription description;
    const QString file = smallFile(description);

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json")),
                                       QStringList{QStringLiteral("--svg"), QStringLiteral("-")}}) {
        const ToolResult result = inShell({}, options + QStringList(file),
                                          QStringLiteral(">/dev/full"));

        QCOMPARE(result.error,
                 QStringLiteral("tessel: standard output: No space left on device\n"));
        QCOMPARE(result.exitCode, 9);
    }
}

QTEST_GUILESS_MAIN(tst_ToolLayoutUse)
#include "tst_ToolLayoutUse.moc"
