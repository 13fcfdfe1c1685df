#include "HeldRegion.h"
#include "live/LiveRegion.h"
#include "support/ResourceLimit.h"
#include "text/Failure.h"
#include "text/LogCollector.h"

#include <QtTest>

/// What a region that the tool has attached to refuses.
class tst_LiveRegion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingDescriptorIsARefusalWithItsCure();
};

void tst_LiveRegion::missingDescriptorIsARefusalWithItsCure()
{
    ToolDescription described;
    described.add(QStringLiteral("a"), QStringLiteral("int32"),
                  ToolDescription::Metadata::ErrorState, 4);
    const QString file = described.write();
    const LogCollector collector;
    const HeldRegion held(file);
    const DescriptionSource description(file);
    LiveRegion region(description, LiveRegion::Opening::Attach);
    ProcessDataWatcher watcher(region.manager());

    Failure told{ExitCode::Done, {}};
    try {
        const ResourceLimit none(RLIMIT_NOFILE, 0);
        region.descriptorOf(watcher);
    } catch (const Failure &failure) {
        told = failure;
    }

    QCOMPARE(told.reason,
             QStringLiteral("%1: cannot attach to region '%2': No descriptor for waiting: Too many "
                            "open files; allow more of them with 'ulimit -n'")
                 .arg(file, described.key()));
    QCOMPARE(static_cast<int>(told.code), 4);
    QVERIFY(region.descriptorOf(watcher) >= 0);
}

QTEST_GUILESS_MAIN(tst_LiveRegion)
#include "tst_LiveRegion.moc"
