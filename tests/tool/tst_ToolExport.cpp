#include "RecordedPlant.h"
#include "ToolFolder.h"

#include <QtTest>

namespace {

QStringList exported(const QString &path, const QStringList &options = {})
{
    return QStringList{QStringLiteral("export"), path} + options;
}

/// A recording of two sets: every form of slot with a value, and some of them with a state.
class RecordedForms
{
public:
    RecordedForms()
    {
        m_description.addEveryForm();
        file = m_description.write();
        path = m_description.path(QStringLiteral("forms.rec"));
    }

    bool record()
    {
        const LogCapture log;
        HeldRegion region(file);
        const bool isSet = isDone({QStringLiteral("set"), file, QStringLiteral("full/double"),
                                   QStringLiteral("0.1"), QStringLiteral("full/string"),
                                   QStringLiteral("a,\"b\""), QStringLiteral("bare/boolean"),
                                   QStringLiteral("true")});
        const QStringList recorder{QStringLiteral("record"),   file,
                                   QStringLiteral("-o"),       path,
                                   QStringLiteral("--append"), QStringLiteral("--sets=1")};
        got = runTool({QStringLiteral("get"), QStringLiteral("--json"), file}).output;
        const bool isFirst = isSet && isDone(recorder);
        return isFirst
               && isDone({QStringLiteral("set"), file, QStringLiteral("full/double"),
                          QStringLiteral("--error"), QStringLiteral("timeout")})
               && isDone(recorder);
    }

    QString file;
    QString path;
    QString got; ///< what `get --json` said of the first set

private:
    static bool isDone(const QStringList &arguments) { return runTool(arguments).exitCode == 0; }

    ToolDescription m_description;
};

} // namespace

/// `tessel export`: a recording as text.
class tst_ToolExport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void valuesAreThoseOfGet();
    void tableHasAColumnForEachValueAndState();
    void columnsAreThoseOfThePatterns();
    void objectsHaveStableKeys();
    void terseIsValuesAlone();
    void unknownUrlIsNotFound();
    void cutRecordingIsNoted();
    void damagedRecordingIsTold();
    void otherFilesAreRefused();
    void unreadableFileIsRefused();
    void otherFormatIsNamed();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
    void interruptEndsItAtOnce();

private:
    RecordedForms m_forms;
};

void tst_ToolExport::initTestCase()
{
    QVERIFY(m_forms.record());
}

void tst_ToolExport::valuesAreThoseOfGet()
{
    const ToolResult result = runTool(exported(m_forms.path, {QStringLiteral("--json")}));
    const QByteArray first = result.output.split(QLatin1Char('\n')).constFirst().toUtf8();
    const QJsonObject set = QJsonDocument::fromJson(first).object();
    const QJsonObject values = set.value(QStringLiteral("values")).toObject();
    const QJsonObject states = set.value(QStringLiteral("states")).toObject();
    const QJsonArray all = QJsonDocument::fromJson(m_forms.got.toUtf8()).array();

    QCOMPARE(result.exitCode, 0);
    QVERIFY(all.size() > 10);
    QCOMPARE(values.size(), all.size());
    for (const auto &entry : all) {
        const QJsonObject expected = entry.toObject();
        const QString url = expected.value(QStringLiteral("url")).toString();
        QCOMPARE(values.value(url), expected.value(QStringLiteral("value")));
        QCOMPARE(states.value(url).toString(QStringLiteral("valid")),
                 expected.value(QStringLiteral("stateName")).toString());
    }
}

void tst_ToolExport::tableHasAColumnForEachValueAndState()
{
    const ToolResult result = runTool(
        exported(m_forms.path, {QStringLiteral("full/double"), QStringLiteral("--csv")}));

    const QRegularExpression table(QStringLiteral(
        "\\Atime,elapsed,generation,dropped,run,trigger,full/double,full/double state\n"
        "20[-0-9]+T[0-9:]+\\.[0-9]{6}Z,[0-9]+\\.[0-9]{6},2,0,1,,0\\.1,valid\n"
        "20[-0-9]+T[0-9:]+\\.[0-9]{6}Z,[0-9]+\\.[0-9]{6},3,0,2,,,timeout\n\\z"));
    QVERIFY2(table.match(result.output).hasMatch(), qPrintable(result.output));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    // So it is without the option.
    QCOMPARE(runTool(exported(m_forms.path, {QStringLiteral("full/double")})).output,
             result.output);
}

void tst_ToolExport::columnsAreThoseOfThePatterns()
{
    const ToolResult result = runTool(
        exported(m_forms.path,
                 {QStringLiteral("full/str*"), QStringLiteral("**/double"), QStringLiteral("-t")}));

    QCOMPARE(result.exitCode, 0);
    const QStringList first =
        result.output.split(QLatin1Char('\n')).constFirst().split(QLatin1Char(','));
    QVERIFY2(result.output.contains(QStringLiteral("\"a,\"\"b\"\"\"")), qPrintable(result.output));
    QVERIFY(first.contains(QStringLiteral("0.1")));
}

void tst_ToolExport::objectsHaveStableKeys()
{
    const ToolResult result = runTool(
        exported(m_forms.path, {QStringLiteral("--json"), QStringLiteral("full/double")}));
    const QStringList lines = result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);

    QCOMPARE(lines.size(), 2);
    const QJsonObject second = QJsonDocument::fromJson(lines[1].toUtf8()).object();
    QCOMPARE(second.keys(), (QStringList{QStringLiteral("dropped"), QStringLiteral("elapsed"),
                                         QStringLiteral("generation"), QStringLiteral("run"),
                                         QStringLiteral("states"), QStringLiteral("time"),
                                         QStringLiteral("triggers"), QStringLiteral("values")}));
    QCOMPARE(second.value(QStringLiteral("values")).toObject(),
             (QJsonObject{{QStringLiteral("full/double"), QJsonValue::Null}}));
    QCOMPARE(second.value(QStringLiteral("states")).toObject(),
             (QJsonObject{{QStringLiteral("full/double"), QStringLiteral("timeout")}}));
}

void tst_ToolExport::terseIsValuesAlone()
{
    const ToolResult result = runTool(
        exported(m_forms.path, {QStringLiteral("-t"), QStringLiteral("full/double")}));

    QCOMPARE(result.output, QStringLiteral("0.1\n\"\"\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(runTool(exported(m_forms.path, {QStringLiteral("--csv"), QStringLiteral("--terse"),
                                             QStringLiteral("full/double")}))
                 .output,
             result.output);
}

void tst_ToolExport::unknownUrlIsNotFound()
{
    const ToolResult result = runTool(exported(m_forms.path, {QStringLiteral("full/duoble")}));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no value at 'full/duoble' (did you mean "
                                          "'full/double'?)\n")
                               .arg(m_forms.path));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolExport::cutRecordingIsNoted()
{
    const QString path = m_forms.path + QStringLiteral(".cut");
    QVERIFY(QFile::copy(m_forms.path, path));
    QFile file(path);
    QVERIFY(file.resize(file.size() - 1));

    const ToolResult result = runTool(exported(path));

    QVERIFY2(QRegularExpression(
                 QStringLiteral("\\Atessel: note: .*: ends in a record that is not whole, at byte "
                                "[0-9]+; its recorder was ended\n\\z"))
                 .match(result.error)
                 .hasMatch(),
             qPrintable(result.error));
    QCOMPARE(result.output.count(QLatin1Char('\n')), 3);
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExport::damagedRecordingIsTold()
{
    const QString path = m_forms.path + QStringLiteral(".damaged");
    QByteArray bytes = fileBytes(m_forms.path);
    bytes[bytes.size() - 1] = '!';
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();

    const ToolResult result = runTool(exported(path));

    QVERIFY2(QRegularExpression(QStringLiteral("\\Atessel: .*: is damaged at byte [0-9]+; the sets "
                                               "before it are read\n\\z"))
                 .match(result.error)
                 .hasMatch(),
             qPrintable(result.error));
    QCOMPARE(result.output.count(QLatin1Char('\n')), 3);
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolExport::otherFilesAreRefused()
{
    const ToolResult result = runTool(exported(m_forms.file));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no recording\n").arg(m_forms.file));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolExport::unreadableFileIsRefused()
{
    const NarrowPermissions narrow(m_forms.path, QFile::WriteOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }

    const ToolResult result = runTool(exported(m_forms.path));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no permission to read it\n").arg(m_forms.path));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolExport::otherFormatIsNamed()
{
    const QString path = m_forms.path + QStringLiteral(".later");
    QByteArray bytes = fileBytes(m_forms.path);
    bytes[8] = 2;
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();

    const ToolResult result = runTool(exported(path));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: is a recording of format 2; this tool knows format 1\n")
                 .arg(path));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolExport::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const QString file = QStringLiteral("nowhere.rec");
    const QString help = QStringLiteral("tessel: export: %1; see 'tessel export --help'\n");
    QTest::newRow("two forms") << QStringList{QStringLiteral("--csv"), QStringLiteral("--json"),
                                              file}
                               << help.arg(QStringLiteral("--json does not go with --csv"));
    QTest::newRow("terse object") << QStringList{QStringLiteral("-t"), QStringLiteral("--json"),
                                                 file}
                                  << help.arg(QStringLiteral("--json does not go with --terse"));
    QTest::newRow("option") << QStringList{
        QStringLiteral("--cvs"),
        file} << help.arg(QStringLiteral("unknown option '--cvs' (did you mean '--csv'?)"));
    QTest::newRow("no recording") << QStringList()
                                  << help.arg(QStringLiteral("RECORDING is missing"));
    QTest::newRow("no such file") << QStringList(file)
                                  << QStringLiteral("tessel: nowhere.rec: no such file\n");
}

void tst_ToolExport::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    const ToolResult result = runTool(QStringList(QStringLiteral("export")) + arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, error.contains(QStringLiteral("no such file")) ? 3 : 2);
}

void tst_ToolExport::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader(exported(m_forms.path)), 0);
}

void tst_ToolExport::fullOutputIsAFailure()
{
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" export \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), m_forms.path});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

/// It holds nothing that would have to be given back, so the signal does what it does to any program.
void tst_ToolExport::interruptEndsItAtOnce()
{
    DoctoredPlant plant;
    constexpr int units = 500000;
    plant.description().add(QStringLiteral("pump/name"), QStringLiteral("string"),
                            ToolDescription::Metadata::None, units * 2);
    plant.description().write();
    const LogCapture log;
    HeldRegion region(plant.file);
    // Much more than there is room for in a pipe.
    QVERIFY(region.publish(QStringLiteral("pump/name"),
                           validValue(QString(units - 1, QLatin1Char('x')))));
    const QString path = plant.description().path(QStringLiteral("long.rec"));
    QCOMPARE(runTool({QStringLiteral("record"), plant.file, QStringLiteral("-o"), path,
                      QStringLiteral("--sets=1")})
                 .exitCode,
             0);
    ToolProcess tool(exported(path));
    QVERIFY(tool.nextLine().startsWith(QStringLiteral("time,")));

    tool.signal(SIGINT);

    QCOMPARE(tool.finish().exitCode, -1);
}

QTEST_GUILESS_MAIN(tst_ToolExport)
#include "tst_ToolExport.moc"
