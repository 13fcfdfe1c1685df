#pragma once

#include "commandline/CommandLine.h"
#include "configuration/ConfigurationSource.h"
#include "text/ExitCode.h"

/// What `tessel config` does, by the name of the action. The number of arguments is checked; the
/// URL is the third.
ExitCode getConfiguration(const CommandLine &line, const ConfigurationSource &source);
ExitCode showConfiguration(const CommandLine &line, const ConfigurationSource &source);
ExitCode setConfiguration(const CommandLine &line, const ConfigurationSource &source);
ExitCode tableOfConfiguration(const CommandLine &line, const ConfigurationSource &source);

/// The names of its options.
namespace ConfigOption {

constexpr auto json = "json";
constexpr auto csv = "csv";
constexpr auto import = "import";
constexpr auto noInput = "no-input";
constexpr auto dryRun = "dry-run";

inline bool isSet(const CommandLine &line, const char *option)
{
    return line.isSet(QLatin1String(option));
}

} // namespace ConfigOption

/// Ends a `tessel config` that makes no sense.
[[noreturn]] void refuseConfigUse(const QString &reason);
