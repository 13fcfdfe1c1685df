#include "InspectedRegion.h"
#include "support/WithoutMainThread.h"

#include <QCoreApplication>

namespace {

/// Has a region until it is told to end.
ChildProcess::Body holding(const ProcessDescription &description,
                           ProcessDataManager::InitTypeSharedMemory type)
{
    return [&description, type](const ChildSide &side) {
        const QuietManager manager(description, type);
        CHILD_VERIFY(manager.isValid());
        side.say();
        side.waitForWord();
        return 0;
    };
}

} // namespace

/// What an inspection says of processes whose main thread has ended while others go on.
class tst_RegionThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creatorWithoutMainThreadLivesAndDies();
    void userWithoutMainThreadIsSeen();
    void otherLayoutWithoutMainThreadKeepsItsPlace();
};

void tst_RegionThreads::creatorWithoutMainThreadLivesAndDies()
{
    const TwoNumbers description;
    ChildProcess child(withoutMainThread(holding(description, create)));
    QVERIFY(child.waitUntilReady());
    const RegionInspection region = description.inspect();

    QVERIFY(region.getCreator().pid.has_value());
    QVERIFY(region.getCreator().isAlive == true);

    child.send(SIGKILL);
    // Its number stays taken until kill().
    QTRY_VERIFY_WITH_TIMEOUT(region.getCreator().isAlive == false, 60000);
    QVERIFY(child.kill());
}

void tst_RegionThreads::userWithoutMainThreadIsSeen()
{
    const TwoNumbers description;
    ChildProcess child(withoutMainThread(holding(description, create)));
    QVERIFY(child.waitUntilReady());
    const std::optional<qint64> pid = description.inspect().getCreator().pid;

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].pid == pid);
    QCOMPARE(users[0].program, QFileInfo(QCoreApplication::applicationFilePath()).fileName());
    QVERIFY(!users[0].isReplaced);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(description.inspect().getUsers().size(), 0);
}

/// Places are given away where no other is free.
void tst_RegionThreads::otherLayoutWithoutMainThreadKeepsItsPlace()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    ChildProcess child(withoutMainThread(holding(other, attach)));
    QVERIFY(child.waitUntilReady());
    auto &places = block.management()->otherLayouts;
    const quint64 word = places[0];
    QVERIFY(word != 0);
    std::fill(std::begin(places), std::end(places), word);

    const QuietManager third(other, attach);

    QVERIFY(third.isValid());
    QVERIFY(std::all_of(std::begin(places), std::end(places),
                        [word](const auto &place) { return place == word; }));
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_RegionThreads)

#include "tst_RegionThreads.moc"
