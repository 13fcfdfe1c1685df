#include "ProcessDataManagement/DescriptionDirectory.h"

#include <QJsonArray>
#include <QProcess>
#include <QtTest>

namespace {

constexpr int longestWait = 60 * 1000;

struct Run
{
    int exitCode;
    QString output;
    QString error;
};

Run runExample(const QString &path)
{
    QProcess process;
    process.start(QStringLiteral(EXAMPLE_CONFIGURE), {path});
    if (!process.waitForFinished(longestWait)) {
        qFatal("The example does not end");
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString projectText(const QString &name)
{
    QFile file(QStringLiteral(PROJECT_FOLDER "/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s cannot be read", qPrintable(name));
    }
    return QString::fromUtf8(file.readAll());
}

/// The marked lines of the example, without the indentation of the function they stand in.
QString snippet(const QString &name)
{
    const QString mark = QStringLiteral("//! [%1]\n").arg(name);
    const QString text = projectText("examples/configure/main.cpp").section(mark, 1, 1);
    QStringList lines = text.split('\n');
    lines.removeLast();
    for (QString &line : lines) {
        line.remove(0, 4);
    }
    return lines.join('\n') + '\n';
}

} // namespace

/// The example that edits a configuration, on a copy of the example device.
class tst_ExampleConfigure : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_directory.reset(); }

    void saysWhatHappens();
    void writesWhatItSays();
    void stampsConfigurationsOnly();
    void folderOfAnotherKindIsRefused();
    void documentQuotesTheExample_data();
    void documentQuotesTheExample();
    void documentQuotesTheOutput();

private:
    QScopedPointer<DescriptionDirectory> m_directory;
};

void tst_ExampleConfigure::init()
{
    m_directory.reset(new DescriptionDirectory("device"));
    QVERIFY(m_directory->copy(PROJECT_FOLDER "/examples/device"));
}

void tst_ExampleConfigure::saysWhatHappens()
{
    const Run run = runExample(m_directory->path());

    QCOMPARE(run.output,
             QString("TI-101 speaks en and filters with 0.5 s\n"
                     "nobody has entered an alarm delay\n"
                     "  signal: device/tag is PT-205 now\n"
                     "device/tag = PT-205: SetValueChanged\n"
                     "device/tag = PT-205: SetValueUnchanged\n"
                     "device/tag = pt 205: SetValueRegularExpressionMismatch\n"
                     "device/tga = PT-205: SetValueTargetMissing\n"
                     "a property that the element does not have: SetValuePropertyPathInvalid\n"
                     "  signal: inputs/calibration/table is "
                     "[[4,0,0],[8,25.3,0],[12,49.9,0],[20,100,1]] now\n"
                     "cell 1,1: SetValueChanged\n"
                     "cell 9,1: SetValueTargetMissing\n"
                     "cell 1,1 is 25.3\n"
                     "  signal: inputs/calibration/table is "
                     "[[4,0,0],[8,25.3,0],[12,49.9,0],[20,99.8,0],[16,0,0]] now\n"
                     "the cells of the table: SetValueChanged\n"
                     "the unit types of its columns: SetValueChanged\n"
                     "5 rows; unit types 'current', 'volume', ''\n"
                     "stamped device/counters/counters\n"
                     "stamped device/device\n"
                     "stamped device/diagnosis/diagnosis\n"
                     "stamped device/digital/digital\n"
                     "stamped device/inputs/calibration\n"
                     "stamped device/inputs/channel1\n"
                     "stamped device/inputs/channel2\n"
                     "stamped device/inputs/channel3\n"
                     "stamped device/inputs/channel4\n"));
    QCOMPARE(run.error,
             QString("Regular expression mismatch in configuration \"device/tag\" with data "
                     "\"pt 205\"\n"
                     "Key not found \"regularExpresion\"\n"
                     "Destination row is empty, row number given 9 ,max row numbers in array 4\n"));
    QCOMPARE(run.exitCode, 0);
}

void tst_ExampleConfigure::writesWhatItSays()
{
    QCOMPARE(runExample(m_directory->path()).exitCode, 0);

    const QJsonObject device = m_directory->json("device.config.json");
    QCOMPARE(Description::at(device, "tag").value("value").toString(), QString("PT-205"));
    QCOMPARE(device.value("modifiedBy").toString(), QString("Device"));
    const QJsonObject table = Description::at(m_directory->json("inputs/calibration.config.json"),
                                              "table");
    QCOMPARE(QJsonDocument(table.value("value").toArray()).toJson(QJsonDocument::Compact),
             QByteArray("[[4,0,0],[8,25.3,0],[12,49.9,0],[20,99.8,0],[16,0,0]]"));
    const QJsonArray columns = table.value("arrayInformation").toArray().at(1).toArray();
    QCOMPARE(columns.at(1).toObject().value("unitType").toString(), QString("volume"));
    QVERIFY(!columns.at(2).toObject().contains("unitType"));
}

void tst_ExampleConfigure::stampsConfigurationsOnly()
{
    const auto former = m_directory->snapshot();

    QCOMPARE(runExample(m_directory->path()).exitCode, 0);

    const auto now = m_directory->snapshot();
    QCOMPARE(now.keys(), former.keys());
    for (auto file = now.cbegin(); file != now.cend(); ++file) {
        const bool isConfiguration = file.key().endsWith(".config.json");
        QCOMPARE(file.value() != former.value(file.key()), isConfiguration);
    }
}

void tst_ExampleConfigure::folderOfAnotherKindIsRefused()
{
    const QString path = m_directory->filePath("digital");

    const Run run = runExample(path);

    QCOMPARE(run.output, QString());
    QVERIFY(run.error.endsWith("no copy of examples/device: " + path + '\n'));
    QCOMPARE(run.exitCode, 1);
}

void tst_ExampleConfigure::documentQuotesTheExample_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"write", "table", "write back"}) {
        QTest::newRow(name) << QString(name);
    }
}

void tst_ExampleConfigure::documentQuotesTheExample()
{
    QFETCH(QString, name);

    const QString code = snippet(name);

    QVERIFY(code.count('\n') >= 8);
    QVERIFY2(projectText("docs/status-values.md").contains("```cpp\n" + code + "```\n"),
             qPrintable("docs/status-values.md does not hold:\n" + code));
}

void tst_ExampleConfigure::documentQuotesTheOutput()
{
    const QStringList lines = runExample(m_directory->path()).output.split('\n');

    QVERIFY(projectText("docs/status-values.md")
                .contains("```\n" + lines.mid(2, 6).join('\n') + "\n```\n"));
}

QTEST_GUILESS_MAIN(tst_ExampleConfigure)
#include "tst_ExampleConfigure.moc"
