#include "DoctoredPlant.h"
#include "Inspection/RegionUsers.h"

#include <QtTest>

#include <vector>

namespace {

bool setModeOf(const SemaphoreSet &semaphores, int mode)
{
    semid_ds status{};
    if (::semctl(semaphores.id(), 0, IPC_STAT, &status) != 0) {
        return false;
    }
    status.sem_perm.mode = static_cast<unsigned short>(mode);
    return ::semctl(semaphores.id(), 0, IPC_SET, &status) == 0;
}

} // namespace

Q_DECLARE_METATYPE(std::vector<unsigned short>)

/// What `tessel doctor` finds of the semaphores of a region.
class tst_ToolDoctorSemaphores : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionWithoutSemaphoresIsAnError();
    void semaphoresOfSomebodyElseAreTold_data();
    void semaphoresOfSomebodyElseAreTold();
    void semaphoresWithoutARegionAreTold();
    void semaphoresThatKeepOthersOutAreTold();
    void memoryWithSemaphoresOfAnotherProgramIsNotCalledARegion();
    void semaphoresOfAnotherProgramAreNotCalledOurs();
    void setThatLooksLikeOursIsUnknown();
};

void tst_ToolDoctorSemaphores::regionWithoutSemaphoresIsAnError()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(plant.semaphores().remove());

    for (const QStringList &files : {QStringList{plant.file}, QStringList()}) {
        QCOMPARE(faultsOf(plant.key(), files),
                 QStringList{QStringLiteral("error no-semaphores: the region has no semaphores: "
                                            "nobody can lock it, and so nobody can write; start "
                                            "its creator again, which makes it anew")});
    }
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctorSemaphores::semaphoresOfSomebodyElseAreTold_data()
{
    QTest::addColumn<std::vector<unsigned short>>("values");
    QTest::addColumn<int>("mode");
    const std::vector<unsigned short> ofOurNumber{0, 0, 1, 0, 0, 1, 2, 3, 4};
    QTest::newRow("another number") << std::vector<unsigned short>{1, 2, 3} << 0666;
    QTest::newRow("another number and mode") << std::vector<unsigned short>{1, 2, 3} << 0600;
    QTest::newRow("our number") << ofOurNumber << 0666;
    QTest::newRow("our number and another mode") << ofOurNumber << 0600;
}

void tst_ToolDoctorSemaphores::semaphoresOfSomebodyElseAreTold()
{
    QFETCH(std::vector<unsigned short>, values);
    QFETCH(int, mode);
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(plant.semaphores().remove());
    const int id = plant.semaphores().make(values);
    QVERIFY(id >= 0 && setModeOf(plant.semaphores(), mode));
    const auto key = static_cast<quint32>(
        SystemVSemaphoreBaseClass::systemVKey(plant.key() + QStringLiteral("Semaphore")));

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{
                 QStringLiteral("error semaphores-taken: its System V key 0x%1 belongs to other "
                                "semaphores, of another program or another version of the memory "
                                "format: nobody can lock the region; see whose they are: ipcs -s "
                                "-i %2; else choose another memory key")
                     .arg(key, 8, 16, QLatin1Char('0'))
                     .arg(id)});
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);
}

void tst_ToolDoctorSemaphores::semaphoresWithoutARegionAreTold()
{
    const DoctoredPlant plant;
    QVERIFY(plant.leaveRegion() > 0);
    QVERIFY(plant.segment().remove());

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 2);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
    const QString unseen = RegionUsers().isComplete()
                               ? QString()
                               : QStringLiteral(", or somebody who cannot be seen still has the "
                                                "removed region");
    QCOMPARE(found[1], QStringLiteral("warning semaphores-left: there are semaphores without a "
                                      "region: somebody who was killed has left them%1; tessel rm "
                                      "%2")
                           .arg(unseen, plant.key()));
}

void tst_ToolDoctorSemaphores::semaphoresThatKeepOthersOutAreTold()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(setModeOf(plant.semaphores(), 0600));

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral("warning mode: the semaphores have mode 600 in place of "
                                        "666: they keep other users out, who can neither write nor "
                                        "see them; start its creator again, which makes them "
                                        "anew")});
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctorSemaphores::memoryWithSemaphoresOfAnotherProgramIsNotCalledARegion()
{
    const DoctoredPlant plant;
    QVERIFY(plant.segment().make(QByteArray(600, 'x')));
    QVERIFY(plant.semaphores().make({1, 2, 3}) >= 0);

    QCOMPARE(findingsOf(plant.key(), {}),
             QStringList{QStringLiteral("unknown no-region-for-sure: the semaphores under its key "
                                        "are those of another program, and it does not say that "
                                        "it is a region, so that it may be the memory of that "
                                        "program; name its description, if there is one: tessel "
                                        "doctor FILE")});
}

void tst_ToolDoctorSemaphores::semaphoresOfAnotherProgramAreNotCalledOurs()
{
    const DoctoredPlant plant;
    // The same key and number, but not what the key's text would give.
    QVERIFY(plant.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 4}) >= 0);

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 1);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
}

void tst_ToolDoctorSemaphores::setThatLooksLikeOursIsUnknown()
{
    const DoctoredPlant alike;
    const DoctoredPlant other;
    const int looking = alike.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 4});
    const int differing = other.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 0});
    QVERIFY(looking >= 0 && differing >= 0);
    QStringList ids;
    const QJsonArray all = allFindings();
    for (const auto &finding : all) {
        const QJsonObject object = finding.toObject();
        if (object.value(QStringLiteral("rule")) == QStringLiteral("semaphores-unclaimed")) {
            QCOMPARE(object.value(QStringLiteral("level")).toString(), QStringLiteral("unknown"));
            ids += object.value(QStringLiteral("text"))
                       .toString()
                       .section(QStringLiteral(": "), 1)
                       .split(QStringLiteral(", "));
        }
    }

    QVERIFY(ids.contains(QString::number(looking)));
    QVERIFY(!ids.contains(QString::number(differing)));
}

QTEST_GUILESS_MAIN(tst_ToolDoctorSemaphores)
#include "tst_ToolDoctorSemaphores.moc"
