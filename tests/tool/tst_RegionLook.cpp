#include "HeldRegion.h"
#include "live/Suspicion.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <memory>

using Metadata = ToolDescription::Metadata;

namespace {

QStringList namesOf(const QVector<Suspicion> &suspicions)
{
    QStringList names;
    for (const auto &suspicion : suspicions) {
        names.append(suspicion.name);
    }
    return names;
}

} // namespace

/// What changes between the look at a region and what is said of it.
class tst_RegionLook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionThatStaysIsNotSuspicious();
    void regionThatIsRemovedMeanwhileIsTold();
    void regionThatIsReplacedMeanwhileIsTold();
    void bytesOfTheFormerRegionStayReadable();
};

void tst_RegionLook::regionThatStaysIsNotSuspicious()
{
    ToolDescription file;
    file.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const LogCapture log;
    const DescriptionSource description(file.write());
    const HeldRegion region(description.path());

    QCOMPARE(namesOf(suspicionsOf(RegionLook(description), description)), QStringList());
}

void tst_RegionLook::regionThatIsRemovedMeanwhileIsTold()
{
    ToolDescription file;
    file.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const LogCapture log;
    const DescriptionSource description(file.write());
    auto region = std::make_unique<HeldRegion>(description.path());
    const RegionLook look(description);

    region.reset();

    QCOMPARE(namesOf(suspicionsOf(look, description)), QStringList{QStringLiteral("removed")});
}

void tst_RegionLook::regionThatIsReplacedMeanwhileIsTold()
{
    ToolDescription file;
    file.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const LogCapture log;
    const DescriptionSource description(file.write());
    auto former = std::make_unique<HeldRegion>(description.path());
    const RegionLook look(description);

    former.reset();
    const HeldRegion later(description.path());

    QCOMPARE(namesOf(suspicionsOf(look, description)), QStringList{QStringLiteral("replaced")});
}

void tst_RegionLook::bytesOfTheFormerRegionStayReadable()
{
    ToolDescription file;
    file.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const LogCapture log;
    const DescriptionSource description(file.write());
    auto region = std::make_unique<HeldRegion>(description.path());
    QVERIFY(region->publish(QStringLiteral("a"), validValue(5)));
    const RegionLook look(description);
    region.reset();

    const QVector<BufferedSlot> found = look.slotsOf(description.leaves().constFirst());

    QCOMPARE(found.size(), 2);
    QVERIFY(found[0].isRead && !found[1].isRead);
    QCOMPARE(found[0].value.getValue().toInt(), 5);
    QCOMPARE(hexText(found[0].bytes), QStringLiteral("05000000 00000000"));
}

QTEST_GUILESS_MAIN(tst_RegionLook)
#include "tst_RegionLook.moc"
