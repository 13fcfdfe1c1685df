#include "torture/TortureOptions.h"

#include <QHash>

#include <random>

namespace Torture {

const char *const usage =
    "Usage: torture [--minutes N | --seconds N] [--seed S] [--processes N] [--single]\n"
    "\n"
    "Processes that create, write and read one region are killed, stopped and continued at "
    "random,\n"
    "and everything that they read is checked. Exit code 0 only if nothing was found.\n"
    "\n"
    "  --minutes N, --seconds N   how long (10 seconds); longer until somebody was\n"
    "                             killed, stopped and started again\n"
    "  --seed S                   of the random numbers (a new one, which is printed)\n"
    "  --processes N              from 2 to 8 (8)\n"
    "  --single                   a single buffer instead of a double one\n";

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
        {QStringLiteral("semaphores"), Plant::Semaphores},
        {QStringLiteral("beyond"), Plant::Beyond},
    };
    return byName;
}

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
    options.processes = static_cast<int>(number);
    return number >= 2 && number <= maximumPeers;
}

} // namespace

QString Options::toText() const
{
    QString text = QStringLiteral("--seconds %1 --seed %2 --processes %3")
                       .arg(seconds)
                       .arg(seed)
                       .arg(processes);
    if (!isDoubleBuffer) {
        text += QLatin1String(" --single");
    }
    if (plant != Plant::None) {
        text += QLatin1String(" --plant ") + plants().key(plant);
    }
    return text;
}

std::optional<Options> parseOptions(const QStringList &arguments, QString &error)
{
    const QStringList numbers{QStringLiteral("--seed"), QStringLiteral("--minutes"),
                              QStringLiteral("--seconds"), QStringLiteral("--processes")};
    Options options;
    options.seed = std::random_device()();
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &name = arguments.at(i);
        if (name == QLatin1String("--single")) {
            options.isDoubleBuffer = false;
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
