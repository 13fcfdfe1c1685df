#include "torture/TortureOptions.h"

#include <QHash>

#include <random>

namespace Torture {

const char *const usage =
    "Usage: torture [--minutes N | --seconds N] [--seed S] [MODE]\n"
    "\n"
    "Processes that create, write and read are killed, stopped and continued, and everything that\n"
    "they read is checked. Exit code 0 only if nothing was found.\n"
    "\n"
    "  --minutes N, --seconds N   how long (10 seconds); longer until somebody was\n"
    "                             killed, stopped and started again\n"
    "  --seed S                   of the random numbers (a new one, which is printed)\n"
    "\n"
    "Without a mode several processes share one region and are disturbed at random moments:\n"
    "  --processes N              from 2 to 8 (8)\n"
    "  --waiters N                from 0 to 4 that sleep until a set is published (2), every "
    "other\n"
    "                             one through a descriptor\n"
    "  --single                   a single buffer instead of a double one, without waiters\n"
    "  --no-kills                 processes are stopped and asked to end, and none is killed\n"
    "\n"
    "Modes:\n"
    "  --steps      writers, owners of the lock, readers, creators and leaving users die or stand\n"
    "               still at single instructions, the second one in the recovery of the first as "
    "well\n"
    "  --forks      children of one thread while others are inside locks\n"
    "  --early      users that attach between a creator's memory and its semaphores\n"
    "  --replaced   single buffers whose semaphores are removed and made anew under their users\n"
    "  --regions N  threads that use N regions at once, from 2 to 100\n";

namespace {

/// For the tests of the torture itself; no business of a user.
const QHash<QString, Plant> &plants()
{
    static const QHash<QString, Plant> byName{
        {QStringLiteral("mixed"), Plant::Mixed},
        {QStringLiteral("backward"), Plant::Backward},
        {QStringLiteral("nobody"), Plant::Nobody},
        {QStringLiteral("wait"), Plant::Wait},
        {QStringLiteral("hang"), Plant::Hang},
        {QStringLiteral("starved"), Plant::Starved},
        {QStringLiteral("refused"), Plant::Refused},
        {QStringLiteral("detached"), Plant::Detached},
        {QStringLiteral("signal"), Plant::Signal},
        {QStringLiteral("exit"), Plant::Exit},
        {QStringLiteral("segment"), Plant::Segment},
        {QStringLiteral("stubborn"), Plant::Stubborn},
        {QStringLiteral("unwoken"), Plant::Unwoken},
        {QStringLiteral("belated"), Plant::Belated},
        {QStringLiteral("unarmed"), Plant::Unarmed},
        {QStringLiteral("late"), Plant::Late},
        {QStringLiteral("semaphores"), Plant::Semaphores},
        {QStringLiteral("beyond"), Plant::Beyond},
        {QStringLiteral("halved"), Plant::Halved},
        {QStringLiteral("locked"), Plant::Locked},
        {QStringLiteral("unwarned"), Plant::Unwarned},
        {QStringLiteral("accepted"), Plant::Accepted},
        {QStringLiteral("forgotten"), Plant::Forgotten},
        {QStringLiteral("shared"), Plant::Shared},
        {QStringLiteral("inherited"), Plant::Inherited},
        {QStringLiteral("unlinked"), Plant::Unlinked},
        {QStringLiteral("kept"), Plant::Kept},
        {QStringLiteral("twice"), Plant::Twice},
        {QStringLiteral("uncleared"), Plant::Uncleared},
        {QStringLiteral("leftover"), Plant::LeftOver},
    };
    return byName;
}

const QHash<QString, Mode> &modes()
{
    static const QHash<QString, Mode> byName{
        {QStringLiteral("--steps"), Mode::Steps},
        {QStringLiteral("--forks"), Mode::Forks},
        {QStringLiteral("--early"), Mode::Early},
        {QStringLiteral("--replaced"), Mode::Replaced},
    };
    return byName;
}

/// The system has some thousand sets of semaphores for everybody.
constexpr quint64 mostRegions = 100;

bool applyNumber(Options &options, const QString &name, const QString &text)
{
    bool isNumber = false;
    const quint64 number = text.toULongLong(&isNumber);
    if (!isNumber) {
        return false;
    }
    if (name == QLatin1String("--seed")) {
        options.seed = number;
        return true;
    }
    constexpr quint64 longest = 1000000;
    if (name == QLatin1String("--minutes")) {
        options.seconds = static_cast<qint64>(number * 60);
        return number > 0 && number <= longest;
    }
    if (name == QLatin1String("--seconds")) {
        options.seconds = static_cast<qint64>(number);
        return number > 0 && number <= longest;
    }
    if (name == QLatin1String("--regions")) {
        options.mode = Mode::Regions;
        options.regions = static_cast<int>(number);
        return number >= 2 && number <= mostRegions;
    }
    if (name == QLatin1String("--waiters")) {
        options.waiters = static_cast<int>(number);
        return number <= maximumWaiters;
    }
    options.processes = static_cast<int>(number);
    return number >= 2 && number <= maximumPeers;
}

} // namespace

QString Options::toText() const
{
    QString text = QStringLiteral("--seconds %1 --seed %2").arg(seconds).arg(seed);
    if (mode == Mode::Crowd) {
        text += QStringLiteral(" --processes %1 --waiters %2").arg(processes).arg(waiters);
    } else if (mode == Mode::Regions) {
        text += QStringLiteral(" --regions %1").arg(regions);
    } else {
        text += QLatin1Char(' ') + modes().key(mode);
    }
    if (!isDoubleBuffer) {
        text += QLatin1String(" --single");
    }
    if (!isKilling) {
        text += QLatin1String(" --no-kills");
    }
    if (plant != Plant::None) {
        text += QLatin1String(" --plant ") + plants().key(plant);
    }
    return text;
}

std::optional<Options> parseOptions(const QStringList &arguments, QString &error)
{
    const QStringList numbers{QStringLiteral("--seed"),    QStringLiteral("--minutes"),
                              QStringLiteral("--seconds"), QStringLiteral("--processes"),
                              QStringLiteral("--waiters"), QStringLiteral("--regions")};
    Options options;
    options.seed = std::random_device()();
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &name = arguments.at(i);
        if (name == QLatin1String("--single")) {
            options.isDoubleBuffer = false;
            continue;
        }
        if (name == QLatin1String("--no-kills")) {
            options.isKilling = false;
            continue;
        }
        if (modes().contains(name)) {
            options.mode = modes().value(name);
            continue;
        }
        const QString value = arguments.value(i + 1);
        ++i;
        if (name == QLatin1String("--plant") && plants().contains(value)) {
            options.plant = plants().value(value);
            continue;
        }
        if (!numbers.contains(name)) {
            error = QStringLiteral("there is no option '%1'").arg(name);
            return std::nullopt;
        }
        if (!applyNumber(options, name, value)) {
            error = QStringLiteral("%1 does not take '%2'").arg(name, value);
            return std::nullopt;
        }
    }
    return options;
}

} // namespace Torture
