#include "ExplainedBoiler.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QtTest>

#include <memory>

#include <sys/sem.h>
#include <unistd.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

/// The text behind the name of a fact; empty without it.
QString factIn(const ToolResult &result, const QString &name)
{
    const QStringList lines = result.output.split(QLatin1Char('\n'));
    for (const auto &line : lines) {
        if (line.startsWith(name + QLatin1Char(' '))) {
            return line.mid(name.size()).trimmed();
        }
    }
    return {};
}

/// A configuration with the one value `plant/value`, and a stamp of an hour ago.
QByteArray configurationWith(const QByteArray &leaf, const QByteArray &modifiedBy = "TESSEL")
{
    const QDateTime time = QDateTime::currentDateTimeUtc().addSecs(-3600);
    return R"({"type": "treenode", "modifiedBy": ")" + modifiedBy + R"(", "lastModified": ")"
           + time.toString(Qt::ISODateWithMs).toUtf8()
           + R"(", "value": {"plant": {"type": "treenode", "value": {"value": )" + leaf + "}}}}";
}

ToolResult explainConfiguration(const QStringList &arguments)
{
    return explain(QStringList(QStringLiteral("--config")) + arguments);
}

/// So many writes that a process keeps the lock from then on.
bool writeManyTimes(ProcessDataManager &manager)
{
    for (int i = 0; i < 40; ++i) {
        if (!manager.lockWriteBuffer() || !manager.unlockWriteBuffer()) {
            return false;
        }
    }
    return true;
}

} // namespace

/// The facts on the screen of `tessel explain`: ranges, slots, locks and sets, and the shapes of arrays.
class tst_ToolExplainFacts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
    void cleanup() { m_log.reset(); }

    void typeAndSlotAreTold_data();
    void typeAndSlotAreTold();
    void slotOutsideHasNoBytes();
    void limitThatIsNoNumberIsNull();
    void setWithoutATimeHasItsNumber();
    void holderOfTheLockIsNamed();
    void whoKeepsTheLockIsNamed();
    void readersInsideAreCounted();

    void limitsOfAConfigurationAreTold_data();
    void limitsOfAConfigurationAreTold();
    void shapeOfAnArrayIsTold_data();
    void shapeOfAnArrayIsTold();
    void stampOfNobodyIsTold();

private:
    std::unique_ptr<LogCapture> m_log;
};

void tst_ToolExplainFacts::typeAndSlotAreTold_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("hasState");
    QTest::addColumn<QJsonObject>("properties");
    QTest::addColumn<QString>("typeText");
    QTest::addColumn<QString>("slotText");
    const auto row = [](const char *name, const char *type, int size, bool hasState,
                        const QJsonObject &properties, const char *typeText, const char *slotText) {
        QTest::newRow(name) << QString(type) << size << hasState << properties << QString(typeText)
                            << QString(slotText);
    };

    row("no range", "int32", 4, true, {}, "int32; read-write",
        "bytes 0 to 3 of 8, error state in bytes 4 to 7");
    row("upper limit alone", "int32", 4, true, {{"maxLimit", 7}},
        "int32; limits up to 7; read-write", "bytes 0 to 3 of 8, error state in bytes 4 to 7");
    row("lower limit alone", "int32", 4, true, {{"minLimit", -7}},
        "int32; limits from -7; read-write", "bytes 0 to 3 of 8, error state in bytes 4 to 7");
    row("view from", "float", 4, false, {{"viewStart", 0.5}}, "float; view from 0.5; read-write",
        "bytes 0 to 3 of 4, no metadata");
    row("view up to", "float", 4, false, {{"viewEnd", 2}, {"unit", "m"}},
        "float in m; view up to 2; read-write", "bytes 0 to 3 of 4, no metadata");
    row("bit", "bit", 1, false, {{"bitmask", 4}}, "bit 0x04; read-write",
        "byte 0 of 1, no metadata");
    row("byte", "uint8", 1, true, {{"unit", "V"}, {"readOnly", true}},
        "uint8 in V; read-only: its creator alone writes it",
        "byte 0 of 5, error state in bytes 1 to 4");
    row("text", "string", 16, false, {}, "string; read-write", "bytes 0 to 15 of 16, no metadata");
}

void tst_ToolExplainFacts::typeAndSlotAreTold()
{
    QFETCH(QString, type);
    QFETCH(int, size);
    QFETCH(bool, hasState);
    QFETCH(QJsonObject, properties);
    QFETCH(QString, typeText);
    QFETCH(QString, slotText);
    ToolDescription description;
    description.add("a", type, hasState ? Metadata::ErrorState : Metadata::None, size, properties);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = explain({file, "a"});

    QCOMPARE(result.error, QString());
    QCOMPARE(factIn(result, "Type"), typeText);
    QCOMPARE(factIn(result, "Slot"), slotText);
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExplainFacts::slotOutsideHasNoBytes()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    description.add("outside", "int32", Metadata::None, 4, {{"offsetSharedMemory", 8}});
    description.setRoot("sizeOfSharedMemory", 10);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = explain({file, "outside"});

    QVERIFY(result.output.startsWith("outside: no value to be read\n! "));
    QCOMPARE(factIn(result, "Read buffer"), QString("no bytes of it can be read"));
    QCOMPARE(factIn(result, "Write buffer"), QString("no bytes of it can be read"));
    QCOMPARE(factIn(result, "State"), QString());
    const QJsonObject json = explained(file, "outside");
    QVERIFY(json.value("value").isNull() && json.contains("value"));
    QVERIFY(json.value("stateName").isNull() && json.contains("stateName"));
    QVERIFY(json.value("namurSignal").isNull() && json.contains("namurSignal"));
    const QJsonObject first = json.value("buffers").toArray().first().toObject();
    QVERIFY(first.value("value").isNull() && first.contains("value"));
    QVERIFY(first.value("valueBytes").isNull() && first.contains("valueBytes"));
    QVERIFY(first.value("stateBytes").isNull() && first.contains("stateBytes"));
}

void tst_ToolExplainFacts::limitThatIsNoNumberIsNull()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4,
                    {{"minLimit", QJsonArray{1}}, {"maxLimit", 5}});
    const QString file = description.write();

    const QJsonObject json = explained(file, "a");

    QVERIFY(json.value("minLimit").isNull() && json.contains("minLimit"));
    QCOMPARE(json.value("maxLimit"), QJsonValue(5));
}

/// Another version may not note it.
void tst_ToolExplainFacts::setWithoutATimeHasItsNumber()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    const QString file = description.write();
    const HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(description.key() + "SharedMemory");
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->lastSwap = 0;

    QCOMPARE(factIn(explain({file, "a"}), "Set"), QString("number 1"));
    QVERIFY(explained(file, "a").value("lastSwap").isNull());
}

void tst_ToolExplainFacts::holderOfTheLockIsNamed()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    HeldRegion region(file);
    QVERIFY(region.manager().lockWriteBuffer());
    const SemaphoreSet semaphores(boiler.description.key() + "Semaphore");
    // As whoever waits for the lock, but for as long as it takes.
    ChildProcess waiter([&](const ChildSide &) {
        sembuf take{SemaphoreSet::Names::SemaphoreLease, -1, 0};
        return semop(semaphores.id(), &take, 1) == 0 ? 0 : 1;
    });
    QVERIFY(semaphores.waitUntilBlocked(SemaphoreSet::Names::SemaphoreLease, 1));

    const ToolResult result = explain({file, boiler.url});
    QVERIFY(region.manager().unlockWriteBuffer());

    QCOMPARE(factIn(result, "Lock"),
             QString("held by tst_ToolExplainFacts %1, 1 wait").arg(::getpid()));
    QVERIFY(semaphores.setValue(SemaphoreSet::Names::SemaphoreLease, 1));
    QCOMPARE(waiter.waitForExit(), 0);
}

void tst_ToolExplainFacts::whoKeepsTheLockIsNamed()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    HeldRegion region(file);
    QVERIFY(writeManyTimes(region.manager()));

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(factIn(result, "Lock"),
             QString("free, kept by tst_ToolExplainFacts %1 for its next write").arg(::getpid()));
    const QJsonObject json = explained(file, boiler.url);
    QCOMPARE(json.value("lock"), QJsonValue("kept"));
    QCOMPARE(json.value("lockHolder"), QJsonValue(qint64{::getpid()}));
}

void tst_ToolExplainFacts::readersInsideAreCounted()
{
    Boiler boiler;
    boiler.description.setRoot("doubleBuffer", false);
    const QString file = boiler.description.write();
    HeldRegion region(file);
    QVERIFY(region.manager().lockReadBuffer());

    const ToolResult result = explain({file, boiler.url});

    bool repeat = false;
    QVERIFY(region.manager().unlockReadBuffer(repeat));
    QCOMPARE(factIn(result, "Lock"), QString("free, 1 readers inside"));
}

void tst_ToolExplainFacts::limitsOfAConfigurationAreTold_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QString>("text");

    QTest::newRow("none") << QByteArray() << "int32; read-write";
    QTest::newRow("lower") << QByteArray(R"(, "minLimit": 1)")
                           << "int32; limits from 1; read-write";
    QTest::newRow("upper") << QByteArray(R"(, "maxLimit": 9)")
                           << "int32; limits up to 9; read-write";
    QTest::newRow("both") << QByteArray(R"(, "minLimit": 1, "maxLimit": 9, "unit": "s")")
                          << "int32 in s; limits 1 to 9; read-write";
    QTest::newRow("read-only") << QByteArray(R"(, "readOnly": true)")
                               << "int32; read-only: the library's writes do not look at that";
}

void tst_ToolExplainFacts::limitsOfAConfigurationAreTold()
{
    QFETCH(QByteArray, properties);
    QFETCH(QString, text);
    const ToolDescription folder;
    const QString file = folder.write(
        "one.config.json", configurationWith(R"({"type": "int32", "value": 5)" + properties + '}'));

    const ToolResult result = explainConfiguration({file, "plant/value"});

    QCOMPARE(factIn(result, "Type"), text);
    QVERIFY(result.output.contains("nothing is suspicious\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExplainFacts::shapeOfAnArrayIsTold_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QJsonValue>("columns");
    const QByteArray one = R"("arrayInformation": [[], [{"type": "int32"}]])";

    QTest::newRow("fixed") << one << "2 rows of 1 columns; their number is fixed" << QJsonValue(1);
    QTest::newRow("no most") << one + R"(, "arrayHasDynamicRows": true, "arrayMinRows": 1)"
                             << "2 rows of 1 columns; from 1 rows" << QJsonValue(1);
    QTest::newRow("bounds")
        << one + R"(, "arrayHasDynamicRows": true, "arrayMinRows": 1, "arrayMaxRows": 3)"
        << "2 rows of 1 columns; from 1 rows to 3" << QJsonValue(1);
    QTest::newRow("more rows than may be")
        << one + R"(, "arrayHasDynamicRows": true, "arrayMaxRows": 1)"
        << "2 rows; from 0 rows to 1; no table: 'plant/value': takes 0 to 1 rows, not 2"
        << QJsonValue();
    QTest::newRow("no columns described")
        << QByteArray(R"("arrayHasDynamicRows": false)")
        << "2 rows; their number is fixed; no table: 'plant/value': the array has no description "
           "of its columns"
        << QJsonValue();
}

void tst_ToolExplainFacts::shapeOfAnArrayIsTold()
{
    QFETCH(QByteArray, properties);
    QFETCH(QString, text);
    QFETCH(QJsonValue, columns);
    const ToolDescription folder;
    const QString file = folder.write(
        "one.config.json",
        configurationWith(R"({"type": "array", "value": [[1], [2]], )" + properties + '}'));

    const ToolResult screen = explainConfiguration({file, "plant/value"});
    const ToolResult json = explainConfiguration({"--json", file, "plant/value"});

    const QString array = screen.output.section("\nArray ", 1).section("\nModified ", 0, 0);
    QCOMPARE(array.simplified(), text);
    QVERIFY(screen.output.startsWith("plant/value: 2 rows\n"));
    const QJsonObject object =
        QJsonDocument::fromJson(json.output.toUtf8()).array().first().toObject();
    QCOMPARE(object.value("rows"), QJsonValue(2));
    QCOMPARE(object.value("columns"), columns);
    QCOMPARE(json.exitCode, 0);
}

void tst_ToolExplainFacts::stampOfNobodyIsTold()
{
    const ToolDescription folder;
    const QString file = folder.write(
        "one.config.json", configurationWith(R"({"type": "int32", "value": 5})", QByteArray()));

    const ToolResult result = explainConfiguration({file, "plant/value"});

    const QRegularExpression expected(
        "^its file by nobody, at 20..-..-..T..:..:..\\....Z, 1 h ago$");
    QVERIFY2(expected.match(factIn(result, "Modified")).hasMatch(), qPrintable(result.output));
    QVERIFY(result.output.contains("! the file is not stamped: "));
}

QTEST_GUILESS_MAIN(tst_ToolExplainFacts)
#include "tst_ToolExplainFacts.moc"
