// The torture of one region by several processes: see CONTRIBUTING.md.

#include "torture/ForkMode.h"
#include "torture/RegionsMode.h"
#include "torture/ReplacedMode.h"
#include "torture/StepMode.h"
#include "torture/TortureDriver.h"
#include "torture/TorturePeer.h"

#include <cstdio>

namespace {

/// The processes that the driver starts: SLOT SEED LEDGER-DESCRIPTOR DOUBLE-BUFFER KEY.
int runPeer(const QStringList &arguments)
{
    const Torture::LedgerMapping ledger(arguments.value(2).toInt());
    const Torture::TorturePeer::Start start{
        arguments.value(0).toInt(), arguments.value(1).toULongLong(),
        arguments.value(3) == QLatin1String("1"), arguments.value(4)};
    return Torture::TorturePeer(*ledger, start).run();
}

int runMode(const Torture::Options &options)
{
    switch (options.mode) {
    case Torture::Mode::Crowd: return Torture::TortureDriver(options).run();
    case Torture::Mode::Steps: return Torture::StepMode(options).run();
    case Torture::Mode::Forks: return Torture::ForkMode(options).run();
    case Torture::Mode::Early:
    case Torture::Mode::Replaced: return Torture::ReplacedMode(options).run();
    case Torture::Mode::Regions: return Torture::RegionsMode(options).run();
    }
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    if (arguments.value(0) == QLatin1String("--peer")) {
        return runPeer(arguments.mid(1));
    }
    if (arguments.contains(QStringLiteral("--help"))) {
        std::fputs(Torture::usage, stdout);
        return 0;
    }
    QString error;
    const auto options = Torture::parseOptions(arguments, error);
    if (!options) {
        std::fprintf(stderr, "torture: %s; see --help\n", qPrintable(error));
        return 2;
    }
    return runMode(*options);
}
