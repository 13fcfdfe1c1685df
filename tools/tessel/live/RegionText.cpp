#include "live/RegionText.h"

#include "text/JsonText.h"

namespace {

const QString unknown = QStringLiteral("-");

QString jsonOf(const RegionUser &user)
{
    return jsonObject({
        {QStringLiteral("pid"), QString::number(user.pid)},
        {QStringLiteral("program"), user.program.isEmpty() ? jsonNull() : jsonString(user.program)},
        {QStringLiteral("isReplaced"), jsonBool(user.isReplaced)},
        {QStringLiteral("hasOtherLayout"), jsonFlag(user.hasOtherLayout)},
    });
}

} // namespace

QString ageText(const std::optional<QDateTime> &time)
{
    if (!time) {
        return unknown;
    }
    // A clock that was set back makes no set come from the future.
    return durationText(qMax(time->msecsTo(QDateTime::currentDateTimeUtc()), qint64{0}));
}

QString durationText(qint64 milliseconds)
{
    constexpr qint64 minute = 60 * 1000;
    constexpr qint64 hour = 60 * minute;
    constexpr qint64 day = 24 * hour;
    if (milliseconds < minute) {
        return QStringLiteral("%1 s").arg(static_cast<double>(milliseconds) / 1000, 0, 'f', 1);
    }
    if (milliseconds < hour) {
        return QStringLiteral("%1 min").arg(milliseconds / minute);
    }
    return milliseconds < day ? QStringLiteral("%1 h").arg(milliseconds / hour)
                              : QStringLiteral("%1 d").arg(milliseconds / day);
}

QString creatorText(const RegionCreator &creator)
{
    if (!creator.pid) {
        return unknown;
    }
    const QString life = !creator.isAlive   ? QStringLiteral("unknown")
                         : *creator.isAlive ? QStringLiteral("alive")
                                            : QStringLiteral("dead");
    return QStringLiteral("%1 %2").arg(*creator.pid).arg(life);
}

QString usersText(const QVector<RegionUser> &users, bool isComplete, FormerMemory former)
{
    const QString mark = former == FormerMemory::Removed ? QStringLiteral(" (removed)")
                                                         : QStringLiteral(" (replaced)");
    QStringList texts;
    for (const auto &user : users) {
        QString text = QStringLiteral("%1 %2").arg(user.program, QString::number(user.pid));
        text += user.isReplaced ? mark : QString();
        text += user.hasOtherLayout == true ? QStringLiteral(" (other layout)") : QString();
        texts.append(text);
    }
    if (!isComplete) {
        texts.append(QStringLiteral("..."));
    }
    return texts.isEmpty() ? unknown : texts.join(QStringLiteral(", "));
}

QString jsonNull()
{
    return QStringLiteral("null");
}

QString jsonFlag(const std::optional<bool> &flag)
{
    return flag ? jsonBool(*flag) : jsonNull();
}

QString jsonTime(const std::optional<QDateTime> &time)
{
    return time ? jsonString(time->toString(Qt::ISODateWithMs)) : jsonNull();
}

QString jsonUsers(const QVector<RegionUser> &users, bool isComplete)
{
    QStringList attached;
    for (const auto &user : users) {
        attached.append(jsonOf(user));
    }
    // A list that names nobody and may lack somebody says nothing.
    const bool isKnown = !attached.isEmpty() || isComplete;
    return isKnown ? QLatin1Char('[') + attached.join(QStringLiteral(", ")) + QLatin1Char(']')
                   : jsonNull();
}
