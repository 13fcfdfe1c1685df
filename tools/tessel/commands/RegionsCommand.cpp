#include "Inspection/RegionInspection.h"
#include "Inspection/RegionUsers.h"
#include "commands/Commands.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"

#include <QElapsedTimer>

#include <chrono>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Long enough for a publisher of one set a second.
constexpr std::chrono::milliseconds rateInterval{1000};

const QString unknown = QStringLiteral("-");

/// A region at the first look.
struct Seen
{
    RegionInspection region;
    std::optional<quint64> swapCount;
    Clock::time_point time;
};

/// Each region is held open while its sets are counted, and a machine may have more of them than a
/// program usually opens files.
void allowManyDescriptors()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        // Refused, it leaves what is beyond unknown.
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

std::vector<Seen> lookAtAll()
{
    allowManyDescriptors();
    std::vector<Seen> all;
    const QStringList keys = RegionInspection::findKeys();
    for (const auto &key : keys) {
        const RegionInspection region(key);
        // It may have gone since, and what cannot be opened may still be told.
        if (region.exists()) {
            all.push_back({region, region.getSwapCount(), Clock::now()});
        }
    }
    return all;
}

QString rateText(const Seen &before)
{
    const std::optional<quint64> swapCount = before.region.getSwapCount();
    if (!swapCount || !before.swapCount || *swapCount < *before.swapCount) {
        return unknown;
    }
    const std::chrono::duration<double> passed = Clock::now() - before.time;
    return QString::number(static_cast<double>(*swapCount - *before.swapCount) / passed.count(),
                           'f', 1);
}

QString ageText(const RegionInspection &region)
{
    const std::optional<QDateTime> lastSwap = region.getLastSwap();
    if (!lastSwap) {
        return unknown;
    }
    // A clock that was set back makes no set come from the future.
    const qint64 milliseconds = qMax(lastSwap->msecsTo(QDateTime::currentDateTimeUtc()), qint64{0});
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

QString usersText(const QVector<RegionUser> &users, bool isComplete)
{
    QStringList texts;
    for (const auto &user : users) {
        QString text = QStringLiteral("%1 %2").arg(user.program).arg(user.pid);
        text += user.isReplaced ? QStringLiteral(" (replaced)") : QString();
        text += user.hasOtherLayout ? QStringLiteral(" (other layout)") : QString();
        texts.append(text);
    }
    if (!isComplete) {
        texts.append(QStringLiteral("..."));
    }
    return texts.isEmpty() ? unknown : texts.join(QStringLiteral(", "));
}

void printTable()
{
    const std::vector<Seen> all = lookAtAll();
    if (!all.empty()) {
        std::this_thread::sleep_for(rateInterval);
    }
    const RegionUsers users;
    Table table({{QStringLiteral("KEY"), Table::Alignment::Left},
                 {QStringLiteral("BYTES"), Table::Alignment::Right},
                 {QStringLiteral("SETS/S"), Table::Alignment::Right},
                 {QStringLiteral("LAST SET"), Table::Alignment::Right},
                 {QStringLiteral("CREATOR"), Table::Alignment::Left},
                 {QStringLiteral("ATTACHED"), Table::Alignment::Left}});
    for (const auto &seen : all) {
        const RegionInspection &region = seen.region;
        table.addRow({region.getKey(),
                      region.isReadable() ? QString::number(region.getSize()) : unknown,
                      rateText(seen), ageText(region), creatorText(region.getCreator()),
                      usersText(users.getUsersOf(region), users.isComplete())});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

QString jsonNull()
{
    return QStringLiteral("null");
}

template <class Number>
QString jsonNumber(const std::optional<Number> &number)
{
    return number ? QString::number(*number) : jsonNull();
}

QString jsonFlag(const std::optional<bool> &flag)
{
    return flag ? jsonBool(*flag) : jsonNull();
}

QString jsonOf(const RegionUser &user)
{
    return jsonObject({
        {QStringLiteral("pid"), QString::number(user.pid)},
        {QStringLiteral("program"), user.program.isEmpty() ? jsonNull() : jsonString(user.program)},
        {QStringLiteral("isReplaced"), jsonBool(user.isReplaced)},
        {QStringLiteral("hasOtherLayout"), jsonBool(user.hasOtherLayout)},
    });
}

QString jsonOf(const RegionInspection &region, const RegionUsers &users)
{
    const std::optional<QDateTime> lastSwap = region.getLastSwap();
    const RegionCreator creator = region.getCreator();
    QStringList attached;
    for (const auto &user : users.getUsersOf(region)) {
        attached.append(jsonOf(user));
    }
    // A list that names nobody and may lack somebody says nothing.
    const bool isKnown = !attached.isEmpty() || users.isComplete();
    return jsonObject({
        {QStringLiteral("key"), jsonString(region.getKey())},
        {QStringLiteral("size"),
         region.isReadable() ? QString::number(region.getSize()) : jsonNull()},
        {QStringLiteral("doubleBuffer"), jsonFlag(region.isDoubleBuffer())},
        {QStringLiteral("swapCount"), jsonNumber(region.getSwapCount())},
        {QStringLiteral("lastSwap"),
         lastSwap ? jsonString(lastSwap->toString(Qt::ISODateWithMs)) : jsonNull()},
        {QStringLiteral("creatorPid"), jsonNumber(creator.pid)},
        {QStringLiteral("creatorAlive"), jsonFlag(creator.isAlive)},
        {QStringLiteral("attached"),
         isKnown ? QLatin1Char('[') + attached.join(QStringLiteral(", ")) + QLatin1Char(']')
                 : jsonNull()},
    });
}

void printJson()
{
    const std::vector<Seen> all = lookAtAll();
    const RegionUsers users;
    QStringList regions;
    for (const auto &seen : all) {
        regions.append(jsonOf(seen.region, users));
    }
    writeOutput(jsonArray(regions) + QLatin1Char('\n'));
}

ExitCode run(const CommandLine &line)
{
    if (line.isSet(QStringLiteral("json"))) {
        printJson();
    } else {
        printTable();
    }
    return ExitCode::Done;
}

} // namespace

Command regionsCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("regions");
    syntax.summary = QStringLiteral("Show all regions of this machine and who hangs on them.");
    syntax.leastPositionals = 0;
    syntax.mostPositionals = 0;
    syntax.options = {{QStringLiteral("json"), QStringLiteral("Print a JSON array.")}};
    syntax.examples = QStringLiteral(
        "  tessel regions           a table; counts sets for a second\n"
        "  tessel regions --json    for programs, at once\n");
    return {syntax, run};
}
