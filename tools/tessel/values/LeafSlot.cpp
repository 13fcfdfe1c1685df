#include "values/LeafSlot.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "text/LogCollector.h"

#include <QStringList>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

constexpr quint32 metadataWidth = 4;

/// Bytes that belong to one leaf, or bits of one byte.
struct Range
{
    quint64 begin;
    quint64 end;
    /// 0 for whole bytes.
    quint32 bits;
    QString url;
};

void appendRanges(QVector<Range> &ranges, const Leaf &leaf)
{
    const LeafSlot slot = slotOf(leaf);
    const quint64 width = slot.isBit() ? 1 : slot.size;
    ranges.append({slot.offset, slot.offset + width, slot.isBit() ? slot.bitmask : 0, leaf.url});
    if (slot.hasMetadata()) {
        const quint64 word = quint64(slot.offset) + slot.relativeOffsetMetadata;
        ranges.append({word, word + metadataWidth, 0, leaf.url});
    }
}

bool collide(const Range &left, const Range &right)
{
    if (left.end <= right.begin || right.end <= left.begin) {
        return false;
    }
    return left.bits == 0 || right.bits == 0 || (left.bits & right.bits) != 0;
}

} // namespace

bool LeafSlot::isBit() const
{
    return metaType == QMetaType::Bool && type != Definitions::getKeyDataTypeBoolean();
}

bool LeafSlot::carriesErrorState() const
{
    return hasMetadata() || metaType == QMetaType::Float;
}

quint64 LeafSlot::end() const
{
    // Of a bit only the one byte is touched, whatever size the description gives.
    const quint64 valueEnd = quint64(offset) + (isBit() ? 1 : size);
    const quint64 wordEnd = quint64(offset) + relativeOffsetMetadata + metadataWidth;
    return hasMetadata() ? std::max(valueEnd, wordEnd) : valueEnd;
}

LeafSlot slotOf(const Leaf &leaf)
{
    const auto number = [&leaf](const QString &key) {
        return leaf.element->getProperty(key).toUInt();
    };
    const QString type = textProperty(leaf, Definitions::getKeyDataPropertyType());
    return {number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
            number(Definitions::getKeyDataPropertySizeValue()),
            number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
            number(Definitions::getKeyDataPropertySizeMetadata()),
            number(Definitions::getKeyDataPropertyBitmask()),
            type,
            Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType),
            leaf.element->getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool()};
}

QString textProperty(const Leaf &leaf, const QString &key)
{
    return leaf.element->getProperty(key).toString();
}

QString slotProblem(const Leaf &leaf, quint32 bufferSize)
{
    LogCollector::takeReasons();
    if (!leaf.element->isObjectValid()) {
        return LogCollector::takeReasons();
    }
    const LeafSlot slot = slotOf(leaf);
    if (slot.end() > bufferSize) {
        return QStringLiteral("its slot ends at byte %1 of a buffer of %2")
            .arg(slot.end())
            .arg(bufferSize);
    }
    return {};
}

QStringList overlaps(const QVector<Leaf> &leaves)
{
    QVector<Range> ranges;
    for (const auto &leaf : leaves) {
        appendRanges(ranges, leaf);
    }
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &left, const Range &right) { return left.begin < right.begin; });
    QStringList found;
    for (int i = 0; i < ranges.size(); ++i) {
        for (int j = i + 1; j < ranges.size() && ranges[j].begin < ranges[i].end; ++j) {
            if (collide(ranges[i], ranges[j])) {
                found.append(QStringLiteral("%1 and %2 share byte %3")
                                 .arg(ranges[i].url, ranges[j].url)
                                 .arg(ranges[j].begin));
            }
        }
    }
    return found;
}

QStringList sharedBytes(const Leaf &leaf, const QVector<Leaf> &leaves)
{
    QVector<Range> own;
    appendRanges(own, leaf);
    QStringList found;
    const auto add = [&found](const Range &mine, const Range &other) {
        found.append(QStringLiteral("byte %1 with '%2'")
                         .arg(std::max(mine.begin, other.begin))
                         .arg(other.url));
    };
    for (const auto &candidate : leaves) {
        QVector<Range> others;
        appendRanges(others, candidate);
        const bool isOwn = candidate.url == leaf.url;
        for (const auto &mine : qAsConst(own)) {
            const auto other = std::find_if(
                others.cbegin(), others.cend(), [&](const Range &range) {
                    return isOwn ? range.begin > mine.begin && collide(mine, range)
                                 : collide(mine, range);
                });
            if (other != others.cend()) {
                add(mine, *other);
                break;
            }
        }
    }
    return found;
}
