#include "Access/NumberRegion.h"

#include <QtTest>

#include <functional>

namespace {

using namespace ProcessDataDefinitions;

ProcessValue valid(const QVariant &content)
{
    return {content, PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// Two numbers, and two sets of them that were published: 1 and 1, then 2 and 2.
class Plant
{
public:
    Plant()
        : m_region(true)
        , m_publisher(m_region.description)
        , m_reader(m_region.description, ProcessDataManager::InitTypeSharedMemoryAttach)
    {
        for (const int number : {1, 2}) {
            ready = ready && level()->setValue(valid(number)) && flow()->setValue(valid(number))
                    && manager().swapReadAndWriteBuffer();
        }
    }

    ProcessDataManager &manager() { return m_publisher.manager; }
    ProcessDataValueSharedPointer level() const { return m_publisher.leaf(m_level); }
    ProcessDataValueSharedPointer flow() const { return m_publisher.leaf(m_flow); }
    /// What somebody else sees: "2 2".
    QString seen() const
    {
        return QStringLiteral("%1 %2").arg(published(m_level), published(m_flow));
    }

    bool ready = true;

private:
    QString published(const QString &url) const
    {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        m_reader.leaf(url)->getValue(value, false);
        return value.getValue().toString();
    }

    const QString m_level = QStringLiteral("int32-0");
    const QString m_flow = QStringLiteral("int32-8");
    NumberRegion m_region;
    LiveRegion m_publisher;
    LiveRegion m_reader;
};

using Work = std::function<bool(Plant &)>;

/// What no 32-bit number can be made of.
ProcessValue misfit()
{
    return valid(QVariantMap{{QStringLiteral("no"), QStringLiteral("number")}});
}

} // namespace

Q_DECLARE_METATYPE(Work)

/// What readers see behind a swap, by what its thread did before. Only a write lock brings the buffer that it
/// fills up to date; where there was none, the swap shows the set from before the last one.
class tst_SwapsWithoutASet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onlyALockBringsTheBufferUpToDate_data();
    void onlyALockBringsTheBufferUpToDate();
};

void tst_SwapsWithoutASet::onlyALockBringsTheBufferUpToDate_data()
{
    QTest::addColumn<Work>("work");
    QTest::addColumn<QString>("seen");
    const auto row = [](const char *name, const char *seen, const Work &work) {
        QTest::newRow(name) << work << QString::fromLatin1(seen);
    };
    row("nothing", "1 1", [](Plant & /*plant*/) { return true; });
    row("refused value", "1 1", [](Plant &plant) { return !plant.level()->setValue(misfit()); });
    row("write without a lock", "3 1",
        [](Plant &plant) { return plant.level()->setValueNoLock(valid(3)); });
    row("value", "3 2", [](Plant &plant) { return plant.level()->setValue(valid(3)); });
    row("refused value and another one", "2 3", [](Plant &plant) {
        return !plant.level()->setValue(misfit()) && plant.flow()->setValue(valid(3));
    });
    row("set", "3 2", [](Plant &plant) {
        return plant.manager().lockWriteBuffer() && plant.level()->setValueNoLock(valid(3))
               && plant.manager().unlockWriteBuffer();
    });
    row("set of a refused value", "2 2", [](Plant &plant) {
        return plant.manager().lockWriteBuffer() && !plant.level()->setValueNoLock(misfit())
               && plant.manager().unlockWriteBuffer();
    });
    row("set of nothing", "2 2", [](Plant &plant) {
        return plant.manager().lockWriteBuffer() && plant.manager().unlockWriteBuffer();
    });
}

void tst_SwapsWithoutASet::onlyALockBringsTheBufferUpToDate()
{
    QFETCH(Work, work);
    QFETCH(QString, seen);
    Plant plant;
    QVERIFY(plant.ready);
    QCOMPARE(plant.seen(), QStringLiteral("2 2"));
    QVERIFY(work(plant));

    QVERIFY(plant.manager().swapReadAndWriteBuffer());

    QCOMPARE(plant.seen(), seen);
}

QTEST_GUILESS_MAIN(tst_SwapsWithoutASet)
#include "tst_SwapsWithoutASet.moc"
