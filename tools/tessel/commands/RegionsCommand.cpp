#include "Inspection/RegionInspection.h"
#include "Inspection/RegionUsers.h"
#include "commands/Commands.h"
#include "live/AllRegions.h"
#include "live/MirrorNote.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"

#include <algorithm>
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

/// And who had it behind that.
struct Used
{
    Seen seen;
    QVector<RegionUser> users;
    bool isComplete;

    const RegionInspection &region() const { return seen.region; }
    /// Nobody finds it any more.
    bool isRemoved() const { return region().getName() == RegionInspection::Name::Removed; }
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
    const QStringList keys = keysOfAllRegions();
    for (const auto &key : keys) {
        const RegionInspection region(key);
        // It may have gone since, and what cannot be opened may still be told.
        if (region.exists()) {
            all.push_back({region, region.getSwapCount(), Clock::now()});
        }
    }
    return all;
}

/// Those whose names have gone and that somebody still has. Whoever ends in this moment is not named: the
/// processes are looked at behind the names.
std::vector<Used> lookAtRemoved(const QStringList &keys)
{
    std::vector<Used> found;
    std::optional<RegionUsers> users;
    for (const auto &key : keys) {
        const RegionInspection region(key);
        if (region.exists()) {
            continue;
        }
        if (!users) {
            users.emplace();
        }
        const QVector<RegionUser> former = users->getUsersOf(region);
        if (!former.isEmpty()) {
            found.push_back({{region, {}, {}}, former, users->isComplete()});
        }
    }
    return found;
}

/// All of them with their users, in the order of the keys.
std::vector<Used> usersOfAll(const std::vector<Seen> &all)
{
    const RegionUsers users;
    QStringList others = users.getKeys();
    std::vector<Used> used;
    for (const auto &seen : all) {
        others.removeAll(seen.region.getKey());
        used.push_back({seen, users.getUsersOf(seen.region), users.isComplete()});
    }
    const std::vector<Used> removed = lookAtRemoved(others);
    used.insert(used.end(), removed.cbegin(), removed.cend());
    std::sort(used.begin(), used.end(), [](const Used &left, const Used &right) {
        return left.region().getKey() < right.region().getKey();
    });
    return used;
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

void printTable()
{
    const std::vector<Seen> all = lookAtAll();
    if (!all.empty()) {
        std::this_thread::sleep_for(rateInterval);
    }
    Table table({{QStringLiteral("KEY"), Table::Alignment::Left},
                 {QStringLiteral("BYTES"), Table::Alignment::Right},
                 {QStringLiteral("SETS/S"), Table::Alignment::Right},
                 {QStringLiteral("LAST SET"), Table::Alignment::Right},
                 {QStringLiteral("CREATOR"), Table::Alignment::Left},
                 {QStringLiteral("ATTACHED"), Table::Alignment::Left}});
    for (const auto &used : usersOfAll(all)) {
        const RegionInspection &region = used.region();
        table.addRow(
            {region.getKey(), region.isReadable() ? QString::number(region.getSize()) : unknown,
             rateText(used.seen), ageText(region.getLastSwap()), creatorText(region.getCreator()),
             usersText(used.users, used.isComplete,
                       used.isRemoved() ? FormerMemory::Removed : FormerMemory::Replaced)});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

QString jsonOf(const Used &used)
{
    const RegionInspection &region = used.region();
    const RegionCreator creator = region.getCreator();
    return jsonObject({
        {QStringLiteral("key"), jsonString(region.getKey())},
        {QStringLiteral("size"),
         region.isReadable() ? QString::number(region.getSize()) : jsonNull()},
        {QStringLiteral("doubleBuffer"), jsonFlag(region.isDoubleBuffer())},
        {QStringLiteral("swapCount"), jsonNumber(region.getSwapCount())},
        {QStringLiteral("lastSwap"), jsonTime(region.getLastSwap())},
        {QStringLiteral("creatorPid"), jsonNumber(creator.pid)},
        {QStringLiteral("creatorAlive"), jsonFlag(creator.isAlive)},
        {QStringLiteral("isRemoved"), jsonBool(used.isRemoved())},
        {QStringLiteral("attached"), jsonUsers(used.users, used.isComplete)},
        {QStringLiteral("attachedComplete"), jsonBool(used.isComplete)},
        {QStringLiteral("mirror"), used.isRemoved() ? jsonNull() : mirrorJson(region.getKey())},
    });
}

void printJson()
{
    QStringList regions;
    for (const auto &used : usersOfAll(lookAtAll())) {
        regions.append(jsonOf(used));
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
