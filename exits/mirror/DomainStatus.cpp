#include "mirror/DomainStatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace {

constexpr double million = 1e6;
constexpr double microsecondsOfOne = 1000;
/// Of an identity, for a person.
constexpr int digitsShown = 8;

QString hexOf(const QByteArray &identity)
{
    return QString::fromLatin1(identity.toHex());
}

/// What others say may be beyond what JSON has as a whole number here; it is no negative one for that.
QJsonValue numberOf(quint64 number)
{
    return number <= quint64{std::numeric_limits<qint64>::max()}
               ? QJsonValue(static_cast<qint64>(number))
               : QJsonValue(static_cast<double>(number));
}

QJsonValue numberOf(const std::optional<double> &number)
{
    return number ? QJsonValue(*number) : QJsonValue();
}

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar one) { return !one.isPrint(); },
        QChar(QChar::ReplacementCharacter));
    return text;
}

QString nameOf(const QString &host, const QByteArray &identity)
{
    return QStringLiteral("%1 (%2)").arg(printable(host), hexOf(identity).left(digitsShown));
}

/// For programs; textOf() is for people.
QString wordOf(quint8 state)
{
    switch (static_cast<SourceState>(state)) {
    case SourceState::Live: return QStringLiteral("live");
    case SourceState::CreatorGone: return QStringLiteral("creator-gone");
    case SourceState::RegionReplaced: return QStringLiteral("region-replaced");
    case SourceState::Silent: return QStringLiteral("silent");
    }
    return QStringLiteral("unknown");
}

QString rateText(const std::optional<double> &rate)
{
    return rate ? QStringLiteral("%1 sets a second").arg(*rate, 0, 'f', 1)
                : QStringLiteral("no rate yet");
}

std::optional<double> rate(quint64 count, qint64 begin, qint64 end)
{
    const double time = static_cast<double>(end) - static_cast<double>(begin);
    return time > 0 ? std::make_optional(static_cast<double>(count) * million / time)
                    : std::nullopt;
}

} // namespace

void DomainStatus::take(const QString &region, const QByteArray &identity, const Source &source)
{
    const auto found = m_sources.find({region, identity});
    if (found == m_sources.end()) {
        if (m_sources.size() < sm_mostSeen) {
            m_sources.insert({region, identity}, {source, source, source});
        }
        return;
    }
    const bool isGoingOn = found->last.attachment == source.attachment
                           && found->last.generation <= source.generation;
    found->last = source;
    if (!isGoingOn) {
        found->first = source;
        found->next = source;
    }
}

void DomainStatus::take(const QString &region, const QByteArray &identity, const Receiver &receiver)
{
    const auto found = m_receivers.find({region, identity});
    if (found != m_receivers.end()) {
        found->last = receiver;
    } else if (m_receivers.size() < sm_mostSeen) {
        m_receivers.insert({region, identity}, {receiver, receiver, receiver});
    }
}

void DomainStatus::removeSource(const QString &region, const QByteArray &identity)
{
    m_sources.remove({region, identity});
}

void DomainStatus::removeReceiver(const QString &region, const QByteArray &identity)
{
    m_receivers.remove({region, identity});
}

void DomainStatus::beginNextTime()
{
    const auto begin = [](auto &all) {
        for (auto &one : all) {
            one.first = one.next;
            one.next = one.last;
        }
    };
    begin(m_sources);
    begin(m_receivers);
}

std::optional<double> DomainStatus::rateOf(const Seen<Source> &source)
{
    return rate(source.last.generation - source.first.generation, source.first.timeStamp,
                source.last.timeStamp);
}

std::optional<double> DomainStatus::rateOf(const Seen<Receiver> &receiver)
{
    return rate(receiver.last.sets - std::min(receiver.first.sets, receiver.last.sets),
                receiver.first.timeStamp, receiver.last.timeStamp);
}

QByteArray DomainStatus::json() const
{
    QJsonArray sources;
    for (auto one = m_sources.cbegin(); one != m_sources.cend(); ++one) {
        const Source &last = one->last;
        sources.append(QJsonObject{{QStringLiteral("region"), one.key().first},
                                   {QStringLiteral("source"), hexOf(one.key().second)},
                                   {QStringLiteral("host"), last.host},
                                   {QStringLiteral("state"), wordOf(last.state)},
                                   {QStringLiteral("generation"), numberOf(last.generation)},
                                   {QStringLiteral("rate"), numberOf(rateOf(*one))},
                                   {QStringLiteral("bytes"), numberOf(last.bytes)}});
    }
    QJsonArray receivers;
    for (auto one = m_receivers.cbegin(); one != m_receivers.cend(); ++one) {
        const Receiver &last = one->last;
        receivers.append(QJsonObject{
            {QStringLiteral("region"), one.key().first},
            {QStringLiteral("receiver"), hexOf(one.key().second)},
            {QStringLiteral("host"), last.host},
            {QStringLiteral("mirror"), last.mirror},
            {QStringLiteral("source"),
             last.source.isEmpty() ? QJsonValue() : QJsonValue(hexOf(last.source))},
            {QStringLiteral("generation"), numberOf(last.generation)},
            {QStringLiteral("rate"), numberOf(rateOf(*one))},
            {QStringLiteral("sets"), numberOf(last.sets)},
            {QStringLiteral("losses"), numberOf(last.leftOut)},
            {QStringLiteral("lag"),
             last.sets == 0 ? QJsonValue() : QJsonValue(double(last.lag) / microsecondsOfOne)}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("sources"), sources},
                                     {QStringLiteral("receivers"), receivers}})
        .toJson();
}

QString DomainStatus::lineOf(const Name &name, const Seen<Source> &source)
{
    const QString words = QStringLiteral("  source    %1: %2, generation %3, %4\n");
    return words.arg(nameOf(source.last.host, name.second), wordOf(source.last.state),
                     QString::number(source.last.generation), rateText(rateOf(source)));
}

QString DomainStatus::lineOf(const Name &name, const Seen<Receiver> &receiver)
{
    const Receiver &last = receiver.last;
    const QString words = QStringLiteral(
        "  receiver  %1: mirror '%2' %3, %4 sets, %5 left out%6\n");
    const QString shows = last.source.isEmpty() ? QStringLiteral("without a source")
                                                : QStringLiteral("of %1, generation %2, %3")
                                                      .arg(hexOf(last.source).left(digitsShown),
                                                           QString::number(last.generation),
                                                           rateText(rateOf(receiver)));
    const QString lag =
        last.sets == 0
            ? QString()
            : QStringLiteral(", lag %1 ms").arg(double(last.lag) / microsecondsOfOne, 0, 'f', 1);
    return words.arg(nameOf(last.host, name.second), printable(last.mirror), shows,
                     QString::number(last.sets), QString::number(last.leftOut), lag);
}

QString DomainStatus::text() const
{
    QMap<QString, QString> regions;
    for (auto one = m_sources.cbegin(); one != m_sources.cend(); ++one) {
        regions[one.key().first] += lineOf(one.key(), *one);
    }
    for (auto one = m_receivers.cbegin(); one != m_receivers.cend(); ++one) {
        regions[one.key().first] += lineOf(one.key(), *one);
    }
    QString text;
    for (auto one = regions.cbegin(); one != regions.cend(); ++one) {
        text += QStringLiteral("region '%1'\n%2").arg(printable(one.key()), one.value());
    }
    return text;
}
