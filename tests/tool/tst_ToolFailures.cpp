#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QFile>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using Metadata = ToolDescription::Metadata;

namespace {

const QStringList readingSubcommands{QStringLiteral("info"), QStringLiteral("hold"),
                                     QStringLiteral("get"), QStringLiteral("watch")};

QString oneIntegerDescription(ToolDescription &description)
{
    description.add(QStringLiteral("n/speed"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    return description.write();
}

} // namespace

/// What every subcommand says, in one line and by its exit code, when a file or a region is not
/// what it should be.
class tst_ToolFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileThatIsNoDescription_data();
    void fileThatIsNoDescription();
    void unreadableFile();
    void missingRegion_data();
    void missingRegion();
    void unknownUrl_data();
    void unknownUrl();
    void valueIsNotWrittenToATreeNode();
    void regionThatCannotBeMapped_data();
    void regionThatCannotBeMapped();
    void regionOfAnotherSize();
    void lockThatIsHeldForTooLong();
};

void tst_ToolFailures::fileThatIsNoDescription_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    const QString plant = QStringLiteral("plant.process.json");
    QTest::newRow("missing") << QString() << QByteArray() << 3 << QStringLiteral("no such file");
    QTest::newRow("folder")
        << QStringLiteral(".") << QByteArray() << 9
        << QStringLiteral("holds no process description; their names end in .process.json");
    QTest::newRow("configuration")
        << QStringLiteral("plant.config.json") << QByteArrayLiteral("{}") << 9
        << QStringLiteral("no process description; its name must end in .process.json");
    QTest::newRow("empty") << plant << QByteArray() << 9
                           << QStringLiteral("cannot be parsed: line 1, column 1: illegal value");
    QTest::newRow("no JSON")
        << plant << QByteArrayLiteral("{\n  \"type\": }\n") << 9
        << QStringLiteral("cannot be parsed: line 2, column 11: object is missing after a comma");
    QTest::newRow("no type") << plant << QByteArrayLiteral("{}") << 9
                             << QStringLiteral(
                                    "cannot be parsed: key 'type' not found in JSON object");
    QTest::newRow("bad child")
        << plant << QByteArrayLiteral(R"({"type":"treenode","value":{"a":{}}})") << 9
        << QStringLiteral(
               "cannot be parsed: key 'type' not found in JSON object; object is invalid \"a\"");
    QTest::newRow("no leaves") << plant << QByteArrayLiteral(R"({"type":"treenode","value":{}})")
                               << 9
                               << QStringLiteral("holds no process value; its top level must be a "
                                                 "tree node with leaves below");
    QTest::newRow("leaf at the top") << plant << QByteArrayLiteral(R"({"type":"int32"})") << 9
                                     << QStringLiteral("holds no process value; its top level must "
                                                       "be a tree node with leaves below");
}

void tst_ToolFailures::fileThatIsNoDescription()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, text);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    const ToolDescription folder;
    QString file = folder.path(name.isEmpty() ? QStringLiteral("no.process.json") : name);
    if (!name.isEmpty() && name != QLatin1String(".")) {
        file = folder.write(name, text);
    }
    QList<QStringList> calls{
        {QStringLiteral("set"), file, QStringLiteral("a"), QStringLiteral("1")}};
    for (const auto &subcommand : readingSubcommands) {
        calls.append({subcommand, file});
    }

    for (const auto &call : qAsConst(calls)) {
        const ToolResult result = runTool(call);

        QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(file, reason));
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.output, QString());
    }
}

void tst_ToolFailures::unreadableFile()
{
    if (::geteuid() == 0) {
        QSKIP("Root reads every file");
    }
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    QFile::setPermissions(file, QFile::WriteOwner);

    const ToolResult result = runTool({QStringLiteral("info"), file});

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no permission to read it\n").arg(file));
}

void tst_ToolFailures::missingRegion_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("get") << QStringList{QStringLiteral("get")};
    QTest::newRow("watch") << QStringList{QStringLiteral("watch")};
    QTest::newRow("set") << QStringList{QStringLiteral("set"), QStringLiteral("n/speed"),
                                        QStringLiteral("1")};
}

void tst_ToolFailures::missingRegion()
{
    QFETCH(QStringList, arguments);
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    arguments.insert(1, file);

    const ToolResult result = runTool(arguments);

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2'; start the process that "
                                          "creates it, or 'tessel hold'\n")
                               .arg(file, description.key()));
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolFailures::unknownUrl_data()
{
    missingRegion_data();
}

void tst_ToolFailures::unknownUrl()
{
    QFETCH(QStringList, arguments);
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    const HeldRegion region(file);
    const QStringList value = arguments.mid(2);

    const QStringList typo = QStringList{arguments.constFirst(), file, QStringLiteral("n/sped")};
    const ToolResult result = runTool(typo + value);

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.output, QString());
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: no element at 'n/sped' (did you mean 'n/speed'?)\n").arg(file));
    QCOMPARE(
        runTool(QStringList{arguments.constFirst(), file, QStringLiteral("/")} + value).exitCode,
        3);
}

void tst_ToolFailures::valueIsNotWrittenToATreeNode()
{
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    const HeldRegion region(file);

    const ToolResult result = runTool(
        {QStringLiteral("set"), file, QStringLiteral("n"), QStringLiteral("1")});

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: 'n' is a tree node and has no value\n").arg(file));
}

void tst_ToolFailures::regionThatCannotBeMapped_data()
{
    QTest::addColumn<mode_t>("type");
    QTest::newRow("empty file") << mode_t{S_IFREG};
    // Which keeps whoever opens it for reading alone waiting.
    QTest::newRow("pipe") << mode_t{S_IFIFO};
}

void tst_ToolFailures::regionThatCannotBeMapped()
{
    QFETCH(mode_t, type);
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    const QString path = description.segmentPath();
    QCOMPARE(mknod(qPrintable(path), type | 0600, 0), 0);

    const ToolResult result = runTool({QStringLiteral("get"), file});
    const ToolResult info = runTool({QStringLiteral("info"), file});
    QVERIFY(QFile::remove(path));

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot attach to region '%2': Invalid argument\n")
                 .arg(file, description.key()));
    QCOMPARE(info.exitCode, 0);
    QVERIFY(info.output.contains(QStringLiteral("; exists, cannot be opened: Invalid argument\n")));
}

void tst_ToolFailures::regionOfAnotherSize()
{
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    const HeldRegion region(file);
    description.add(QStringLiteral("n/more"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString changed = description.write();

    for (const auto &subcommand : {QStringLiteral("get"), QStringLiteral("watch")}) {
        const ToolResult result = runTool({subcommand, changed});

        QCOMPARE(result.exitCode, 8);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.error,
                 QStringLiteral("tessel: %1: region '%2' has 528 bytes where the description asks "
                                "for 544; its creator uses another description\n")
                     .arg(changed, description.key()));
    }
}

void tst_ToolFailures::lockThatIsHeldForTooLong()
{
    ToolDescription description;
    const QString file = oneIntegerDescription(description);
    HeldRegion region(file);
    ToolDescription single;
    single.setRoot(QStringLiteral("doubleBuffer"), false);
    const QString singleFile = oneIntegerDescription(single);
    HeldRegion singleRegion(singleFile);
    QVERIFY(region.manager().lockWriteBuffer());
    QVERIFY(singleRegion.manager().lockWriteBuffer());

    ToolProcess set({QStringLiteral("set"), file, QStringLiteral("n/speed"), QStringLiteral("1")});
    ToolProcess get({QStringLiteral("get"), singleFile});
    const ToolResult setResult = set.finish();
    const ToolResult getResult = get.finish();
    region.manager().unlockWriteBuffer();
    singleRegion.manager().unlockWriteBuffer();

    const QString line = QStringLiteral(
        "tessel: %1: another process has held the lock of region '%2' for more "
        "than 5 s\n");
    QCOMPARE(setResult.exitCode, 6);
    QCOMPARE(setResult.error, line.arg(file, description.key()));
    QCOMPARE(getResult.exitCode, 6);
    QCOMPARE(getResult.output, QString());
    QCOMPARE(getResult.error, line.arg(singleFile, single.key()));
}

QTEST_GUILESS_MAIN(tst_ToolFailures)
#include "tst_ToolFailures.moc"
