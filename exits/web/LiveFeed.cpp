#include "web/LiveFeed.h"

#include "states/StateTable.h"
#include "web/DescriptionJson.h"
#include "web/JsonText.h"

#include <QCryptographicHash>

#include <algorithm>
#include <utility>

namespace {

/// Milliseconds after which streams may have to say that they live.
constexpr int pulseInterval = 1000;
constexpr double millisecondsPerSecond = 1000;

QByteArray timeJson(const std::optional<QDateTime> &time)
{
    return time ? '"' + time->toUTC().toString(Qt::ISODateWithMs).toLatin1() + '"' : "null";
}

QByteArray countJson(const std::optional<quint64> &count)
{
    return count ? QByteArray::number(*count) : "null";
}

QByteArray stateJson(const ProcessValue &value)
{
    return QByteArray::number(static_cast<int>(value.getErrorType()));
}

QByteArray rowOf(int leaf, const ProcessValue &value)
{
    return '[' + QByteArray::number(leaf) + ',' + JsonText::valueForBrowser(value) + ','
           + stateJson(value) + ']';
}

QByteArray objectOf(const FollowedLeaf &leaf, const ProcessValue &value)
{
    return JsonText::object(
        {{"url", JsonText::text(leaf.url)},
         {"value", JsonText::value(value)},
         {"state", stateJson(value)},
         {"stateName", JsonText::text(StateTable::nameOf(value.getErrorType()))},
         {"unit", JsonText::text(leaf.unit)},
         {"type", JsonText::text(leaf.type)}});
}

} // namespace

LiveFeed::LiveFeed(std::shared_ptr<RegionFollower> follower)
    : m_follower(std::move(follower))
    , m_pulse(this)
    , m_absence(m_follower->absence())
    , m_spell(m_follower->isUp() ? 1 : 0)
{
    connect(m_follower.get(), &RegionFollower::leavesChanged, this, &LiveFeed::takeLeaves);
    connect(m_follower.get(), &RegionFollower::upChanged, this, &LiveFeed::handleUp);
    connect(m_follower.get(), &RegionFollower::absenceChanged, this, [this] {
        m_absence = m_follower->absence();
        Q_EMIT newsToTell();
    });
    connect(m_follower.get(), &RegionFollower::setPublished, this, [this] {
        m_isPublished = true;
        Q_EMIT newsToTell();
    });
    connect(&m_pulse, &QTimer::timeout, this, &LiveFeed::newsToTell);
    m_pulse.start(pulseInterval);
    takeLeaves();
}

void LiveFeed::takeLeaves()
{
    m_leavesJson = leavesAsJson(m_follower->leaves());
    m_fingerprint =
        QCryptographicHash::hash(m_leavesJson, QCryptographicHash::Sha256).toHex().left(16);
    m_rows.assign(static_cast<std::size_t>(m_follower->leaves().size()), {});
    m_changedWith.assign(m_rows.size(), 0);
    m_former = {};
}

void LiveFeed::handleUp(bool isUp)
{
    if (isUp) {
        ++m_spell;
        m_isPublished = true;
        m_firstOfSpell = m_number + 1;
        m_former = {};
    }
    Q_EMIT newsToTell();
}

quint64 LiveFeed::newest()
{
    if (!isUp()) {
        return 0;
    }
    if (m_isPublished && takeSet()) {
        m_isPublished = false;
        // The signal of a set may come behind somebody who took it already.
        const bool isFirst = m_number < m_firstOfSpell;
        const bool isOther = m_follower->setCount() != m_count;
        if (takeRows(m_number + 1) || isFirst || isOther) {
            ++m_number;
        }
        m_count = m_follower->setCount();
        m_time = m_follower->setTime();
    }
    return m_number < m_firstOfSpell ? 0 : m_number;
}

bool LiveFeed::takeSet()
{
    return m_follower->takeSet();
}

bool LiveFeed::takeRows(quint64 number)
{
    bool isChanged = false;
    const ProcessDataSnapshot &set = m_follower->set();
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const int index = static_cast<int>(i);
        const auto &element = m_follower->leaves()[index].element;
        const bool isKnown = !m_rows[i].isEmpty()
                             && (!element
                                 || (!m_former.isEmpty() && !set.isDifferent(*element, m_former)));
        if (!isKnown) {
            m_rows[i] = rowOf(index, m_follower->value(index));
            m_changedWith[i] = number;
            isChanged = true;
        }
    }
    m_former = set;
    return isChanged;
}

QByteArray LiveFeed::setSince(quint64 told)
{
    return JsonText::object({{"swaps", countJson(m_count)},
                             {"time", timeJson(m_time)},
                             {"age", ageJson()},
                             {"full", JsonText::boolean(isWhole(told))},
                             {"values", rowsSince(told)}});
}

const QByteArray &LiveFeed::rowsSince(quint64 told)
{
    if (m_text.isEmpty() || m_sinceOfText != told || m_numberOfText != m_number) {
        QVector<QByteArray> rows;
        for (std::size_t i = 0; i < m_rows.size(); ++i) {
            if (isWhole(told) || m_changedWith[i] > told) {
                rows.append(m_rows[i]);
            }
        }
        m_text = JsonText::array(rows);
        m_sinceOfText = told;
        m_numberOfText = m_number;
    }
    return m_text;
}

QByteArray LiveFeed::ageJson() const
{
    if (!m_time) {
        return "null";
    }
    const qint64 age = m_time->msecsTo(QDateTime::currentDateTimeUtc());
    return QByteArray::number(double(std::max<qint64>(age, 0)) / millisecondsPerSecond, 'f', 3);
}

QByteArray LiveFeed::valuesJson() const
{
    QByteArray objects;
    for (int i = 0; i < m_follower->leaves().size(); ++i) {
        objects += (i == 0 ? "\n  " : ",\n  ")
                   + objectOf(m_follower->leaves()[i], m_follower->value(i));
    }
    return JsonText::object({{"region", JsonText::text(m_follower->key())},
                             {"swaps", countJson(m_follower->setCount())},
                             {"time", timeJson(m_follower->setTime())},
                             {"values", '[' + objects + "\n]"}})
           + '\n';
}
