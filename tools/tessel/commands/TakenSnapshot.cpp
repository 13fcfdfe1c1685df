#include "commands/TakenSnapshot.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "live/LiveRegion.h"

#include <QDateTime>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QString timeText(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

/// The values, with the facts of their set.
QVector<ProcessValue> readInto(Snapshot &snapshot, LiveRegion &region, const QVector<Leaf> &leaves,
                               bool isDoubleBuffered)
{
    if (!isDoubleBuffered) {
        return region.read(leaves);
    }
    quint64 generation = 0;
    const QVector<ProcessValue> values = region.read(leaves, generation);
    region.requirePublished(generation);
    snapshot.generation = generation;
    const auto published = region.inspection().getLastSwap();
    // That of a later set says nothing about this one.
    if (published && region.inspection().getSwapCount() == generation) {
        snapshot.published = timeText(*published);
    }
    return values;
}

} // namespace

Snapshot takeSnapshot(const DescriptionSource &description, const QStringList &urls)
{
    QVector<Leaf> leaves = description.leavesAt(urls);
    LiveRegion region(description, LiveRegion::Opening::Read);
    leaves = region.readable(leaves, urls);
    Snapshot snapshot;
    snapshot.key = description.key();
    snapshot.fingerprint = QStringLiteral("0x%1").arg(
        LayoutFingerprint(description.root()).getValue(), 16, 16, QLatin1Char('0'));
    snapshot.urls = urls;
    const auto values = readInto(snapshot, region, leaves, description.isDoubleBuffered());
    snapshot.time = timeText(QDateTime::currentDateTimeUtc());
    QSet<QString> known;
    for (int i = 0; i < leaves.size(); ++i) {
        // Two URLs may lead to one leaf.
        if (!known.contains(leaves[i].url)) {
            known.insert(leaves[i].url);
            snapshot.values.append(
                {leaves[i].url, textProperty(leaves[i], Definitions::getKeyDataPropertyType()),
                 textProperty(leaves[i], Definitions::getKeyDataPropertyUnit()), values[i]});
        }
    }
    return snapshot;
}
