#include "RecordedPlant.h"
#include "ToolFolder.h"

#include <QtTest>

#include <optional>

namespace {

const QStringList oneSet{QStringLiteral("--sets=1")};

QJsonObject objectOf(const ToolResult &result)
{
    return QJsonDocument::fromJson(result.output.toUtf8()).object();
}

/// Makes the description another one, whose region it still names.
bool replaceInDescription(const DoctoredPlant &plant, const QByteArray &former,
                          const QByteArray &later)
{
    const QByteArray text = fileBytes(plant.file);
    QFile file(plant.file);
    return text.contains(former) && file.open(QIODevice::WriteOnly)
           && file.write(QByteArray(text).replace(former, later)) > 0;
}

QVector<double> numbersOf(const QString &path, const char *column)
{
    QVector<double> numbers;
    for (const auto &cell : columnOf(path, QString::fromLatin1(column))) {
        numbers.append(cell.toDouble());
    }
    return numbers;
}

} // namespace

/// `tessel record`: the regions and values that it takes, a publisher in haste, and a clock that is set.
class tst_ToolRecordRegion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionOfAnotherDescriptionIsRefused_data();
    void regionOfAnotherDescriptionIsRefused();
    void regionWithoutPermissionIsRefused();
    void descriptionThatDoesNotParseIsRefused();
    void valueWithoutASlotIsRefused();
    void keyThatBeginsWithAByteOrderMarkIsKept();
    void everySetOfAPublisherInHasteIsRecordedOrTold();
    void clockThatIsSetForwardEndsNothing_data();
    void clockThatIsSetForwardEndsNothing();
};

void tst_ToolRecordRegion::regionOfAnotherDescriptionIsRefused_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("later");
    QTest::addColumn<QString>("error");
    const QString other = QStringLiteral("; its creator uses another description");
    QTest::newRow("layout") << QByteArray("int32") << QByteArray("uint32")
                            << QStringLiteral("region '%1' has another layout, from 'pump/speed' "
                                              "on")
                                   + other;
    QTest::newRow("size") << QByteArray("\"sizeOfSharedMemory\": 8")
                          << QByteArray("\"sizeOfSharedMemory\": 16")
                          << QStringLiteral("region '%1' has 528 bytes where the description asks "
                                            "for 544")
                                 + other;
}

void tst_ToolRecordRegion::regionOfAnotherDescriptionIsRefused()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, later);
    QFETCH(QString, error);
    const RecordedPlant recorded;
    QVERIFY(replaceInDescription(recorded.plant, former, later));

    const ToolResult result = runTool(recorded.record(oneSet));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n")
                               .arg(recorded.plant.file, error.arg(recorded.plant.key())));
    QCOMPARE(result.exitCode, 8);
    QVERIFY(!QFile::exists(recorded.path()));
}

void tst_ToolRecordRegion::regionWithoutPermissionIsRefused()
{
    const RecordedPlant recorded;
    const NarrowPermissions narrow(QStringLiteral("/dev/shm/") + recorded.plant.segment().name(),
                                   QFile::ExeOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }

    const ToolResult result = runTool(recorded.record());

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot attach to region '%2': Permission denied\n")
                 .arg(recorded.plant.file, recorded.plant.key()));
    QCOMPARE(result.exitCode, 4);
    QVERIFY(!QFile::exists(recorded.path()));
}

void tst_ToolRecordRegion::descriptionThatDoesNotParseIsRefused()
{
    const RecordedPlant recorded;
    QVERIFY(replaceInDescription(recorded.plant, "{", "["));

    const ToolResult result = runTool(recorded.record(oneSet));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot be parsed: line 2, column 20: missing "
                            "value separator\n")
                 .arg(recorded.plant.file));
    QCOMPARE(result.exitCode, 9);
    QVERIFY(!QFile::exists(recorded.path()));
}

void tst_ToolRecordRegion::valueWithoutASlotIsRefused()
{
    RecordedPlant recorded;
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/lost"), QStringLiteral("int32"),
                            ToolDescription::Metadata::None, 4,
                            {{QStringLiteral("offsetSharedMemory"), 4000}});
    plant.description().write();
    const HeldRegion region(plant.file);

    const ToolResult result = runTool({QStringLiteral("record"), plant.file,
                                       QStringLiteral("pump/lost"), QStringLiteral("--sets=1"),
                                       QStringLiteral("-o"), recorded.path()});

    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: 'pump/lost' has no usable slot: End of memory reached 4000 0\n")
            .arg(plant.file));
    QCOMPARE(result.exitCode, 9);
    QVERIFY(!QFile::exists(recorded.path()));
}

/// Where it stands unescaped in front of a text, the toolkit drops it.
void tst_ToolRecordRegion::keyThatBeginsWithAByteOrderMarkIsKept()
{
    DoctoredPlant plant;
    const QString file = plant.description().write(
        QStringLiteral("marked.process.json"),
        fileBytes(plant.file).replace("\"speed\"", R"("\uFEFFspeed")"));
    const LogCapture log;
    std::optional<HeldRegion> region(file);
    const QString url = QStringLiteral("pump/\uFEFFspeed");
    QVERIFY(region->publish(url, validValue(7)));
    const QString path = plant.description().path(QStringLiteral("marked.rec"));

    const ToolResult result = runTool(
        {QStringLiteral("record"), file, QStringLiteral("-o"), path, QStringLiteral("--sets=1")});
    QVERIFY2(result.exitCode == 0, qPrintable(result.error));
    region.reset();

    QCOMPARE(runTool({QStringLiteral("export"), QStringLiteral("-t"), path, url}).output,
             QStringLiteral("7\n"));
    const ToolResult other = runTool(
        {QStringLiteral("export"), QStringLiteral("-t"), path, plant.url});
    QCOMPARE(other.exitCode, 3);
    ToolProcess replay({QStringLiteral("replay"), QStringLiteral("--hold"), path});
    QVERIFY(replay.nextLine().startsWith(QStringLiteral("replaying into ")));
    QTRY_COMPARE_WITH_TIMEOUT(
        runTool({QStringLiteral("get"), QStringLiteral("-t"), file, url}).output,
        QStringLiteral("7\n"), 30000);
    replay.signal(SIGINT);
    QCOMPARE(replay.finish().exitCode, 0);
}

/// Of each set it is known how many were published before it.
void tst_ToolRecordRegion::everySetOfAPublisherInHasteIsRecordedOrTold()
{
    constexpr int published = 500;
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record({QStringLiteral("--json")}));
    QVERIFY(recorded.isBegun(recorder));

    const ToolResult publisher = runTool({QStringLiteral("sim"), recorded.plant.file,
                                          QStringLiteral("--attach"), QStringLiteral("--rate=1000"),
                                          QStringLiteral("--sets=%1").arg(published)});
    QCOMPARE(publisher.exitCode, 0);
    recorder.signal(SIGINT);

    const ToolResult result = recorder.finish();
    QCOMPARE(result.exitCode, 0);
    const int sets = objectOf(result).value(QStringLiteral("sets")).toInt();
    const int dropped = objectOf(result).value(QStringLiteral("dropped")).toInt();
    QCOMPARE(sets + dropped, 1 + published);
    const QVector<double> generations = numbersOf(recorded.path(), "generation");
    const QVector<double> drops = numbersOf(recorded.path(), "dropped");
    QCOMPARE(generations.size(), sets);
    QCOMPARE(generations.constFirst(), 1.0);
    for (int i = 1; i < sets; ++i) {
        QCOMPARE(generations[i], generations[i - 1] + drops[i] + 1);
    }
    QCOMPARE(generations.constLast(), 1.0 + published);
    QCOMPARE(result.error.isEmpty(), dropped == 0);
}

void tst_ToolRecordRegion::clockThatIsSetForwardEndsNothing_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("time") << QStringList{QStringLiteral("--for=30min")};
    QTest::newRow("ring") << QStringList{QStringLiteral("--ring=30min")};
}

/// The times of the sets show it, and nothing that lasts is measured by it.
void tst_ToolRecordRegion::clockThatIsSetForwardEndsNothing()
{
    QFETCH(QStringList, options);
    constexpr int hour = 3600;
    RecordedPlant recorded;
    const QString later = recorded.path(QStringLiteral("later"));
    ToolProcess recorder(recorded.record(options), {QStringLiteral("LD_PRELOAD=" JUMPING_CLOCK),
                                                    QStringLiteral("JUMPING_CLOCK=") + later});
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QFile jump(later);
    QVERIFY(jump.open(QIODevice::WriteOnly));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(2)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(3)));
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(valuesOf(recorded.path()),
             (QStringList{{}, QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")}));
    QVERIFY(fileBytes(recorded.path()).contains("\"reason\":\"interrupted\""));
    QVector<QDateTime> times;
    for (const auto &cell : columnOf(recorded.path(), QStringLiteral("time"))) {
        times.append(QDateTime::fromString(cell, Qt::ISODateWithMs));
    }
    const QVector<double> elapsed = numbersOf(recorded.path(), "elapsed");
    QVERIFY(times[1].secsTo(times[2]) >= hour);
    QVERIFY(times[2].secsTo(times[3]) < hour);
    QVERIFY(std::is_sorted(elapsed.cbegin(), elapsed.cend()));
    QVERIFY(elapsed.constLast() < hour / 2);
}

QTEST_GUILESS_MAIN(tst_ToolRecordRegion)
#include "tst_ToolRecordRegion.moc"
