#include "ToolProcess.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

namespace {

ToolResult schema(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("schema")) + arguments);
}

} // namespace

/// `tessel schema`. That it agrees with `tessel validate` is a check of its own, for it needs a validator.
class tst_ToolSchema : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void kindIsPrinted_data();
    void kindIsPrinted();
    void unknownKindHasAHint();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolSchema::kindIsPrinted_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("title");

    QTest::newRow("process") << "process"
                             << "Process description of Tessel";
    QTest::newRow("config") << "config"
                            << "Configuration of Tessel";
    QTest::newRow("folder") << "folder"
                            << "Folder of Tessel descriptions";
}

void tst_ToolSchema::kindIsPrinted()
{
    QFETCH(QString, kind);
    QFETCH(QString, title);

    const ToolResult result = schema({kind});

    const QJsonObject printed = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(printed.value(QStringLiteral("$schema")).toString(),
             QStringLiteral("https://json-schema.org/draft/2020-12/schema"));
    QCOMPARE(printed.value(QStringLiteral("title")).toString(), title);
    QCOMPARE(printed.value(QStringLiteral("$ref")).toString(), QStringLiteral("#/$defs/") + kind);
    QVERIFY(printed.value(QStringLiteral("$defs")).toObject().contains(kind));
    QVERIFY(result.output.endsWith(QLatin1String("}\n")));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolSchema::unknownKindHasAHint()
{
    const ToolResult result = schema({QStringLiteral("proces")});

    QCOMPARE(result.error, QStringLiteral("tessel: schema: there is none of 'proces' (did you mean "
                                          "'process'?); see 'tessel schema --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolSchema::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("nothing") << QStringList();
    QTest::newRow("two kinds") << QStringList{"process", "config"};
    QTest::newRow("unknown option") << QStringList{"process", "--jsn"};
}

void tst_ToolSchema::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);

    const ToolResult result = schema(arguments);

    QVERIFY(result.error.startsWith(QLatin1String("tessel: schema: ")));
    QVERIFY(result.error.endsWith(QLatin1String("see 'tessel schema --help'\n")));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolSchema::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("schema"), QStringLiteral("process")}), 0);
}

void tst_ToolSchema::fullOutputIsAFailure()
{
    QProcess shell;

    shell.start(QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$@\" >/dev/full"),
                 QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL), QStringLiteral("schema"),
                 QStringLiteral("config")});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
}

QTEST_GUILESS_MAIN(tst_ToolSchema)
#include "tst_ToolSchema.moc"
