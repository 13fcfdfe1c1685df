#pragma once

#include "CommandLine.h"
#include "ConfigurationSource.h"
#include "ExitCode.h"

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

inline bool isSet(const CommandLine &line, const char *option)
{
    return line.isSet(QLatin1String(option));
}

} // namespace ConfigOption

/// The names of the actions.
QStringList configActionNames();
/// Whether the action goes with an option; one that every action or subcommand takes does.
bool mayTakeOption(const QString &action, const QString &option);

/// Ends a `tessel config` that makes no sense.
[[noreturn]] void refuseConfigUse(const QString &reason);
