#pragma once

#include "torture/SharedLedger.h"

#include <QStringList>

#include <optional>

namespace Torture {

/// What is done to the processes.
enum class Mode {
    Crowd, ///< kills and stops at random moments
    Steps,
    Forks,
    Early,
    Replaced,
    Regions
};

/// What the command line asks for.
struct Options
{
    Mode mode = Mode::Crowd;
    int regions = 12; ///< of Mode::Regions
    qint64 seconds = 10;
    quint64 seed = 0;
    int processes = maximumPeers;
    int waiters = 2; ///< beside them; a single buffer has none
    bool isKilling = true;
    bool isDoubleBuffer = true;
    Plant plant = Plant::None;

    /// Those who wait can do so with a double buffer only.
    int slotCount() const { return processes + (isDoubleBuffer ? waiters : 0); }
    /// The command line that repeats such a run.
    QString toText() const;
};

/// Nothing if the arguments cannot be understood; @p error says why then.
std::optional<Options> parseOptions(const QStringList &arguments, QString &error);

extern const char *const usage;

} // namespace Torture
