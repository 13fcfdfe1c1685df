#pragma once

#include "Validation/DescriptionPlace.h"
#include "commandline/CommandLine.h"
#include "configuration/CheckedWrite.h"
#include "text/ExitCode.h"

#include <QDateTime>
#include <QVector>

#include <optional>

/// The names of the options of `tessel explain`.
namespace ExplainOption {

constexpr auto config = "config";
constexpr auto value = "value";
constexpr auto json = "json";

} // namespace ExplainOption

/// `tessel explain --config`.
ExitCode explainConfiguration(const CommandLine &line);
/// Whether it would explain something of the configuration at this path.
bool isConfigurationValue(const QString &path, const QString &url);

/// Something that a reader of a configuration value should know.
struct ConfigurationSuspicion
{
    QString
        name; ///< short and lasting: that of a rule for descriptions, or such as `never-stamped`
    QString text; ///< a sentence without its full stop
};

/// Who changed a file last, as the file says.
struct FileStamp
{
    bool hasPlace = false; ///< both properties are there
    QString modifiedBy;    ///< empty if nobody did
    QString lastModified;

    /// When that was; invalid if it is none.
    QDateTime time() const;
};

/// A write that was asked for.
struct AskedWrite
{
    QString text;
    CheckedWrite write;
};

/// All that `tessel explain --config` tells of one value.
struct ConfigurationExplanation
{
    ConfigurationTarget target;
    std::optional<DescriptionPlace> place;
    QString file; ///< in which it is described
    FileStamp stamp;
    CheckedWrite presentWrite;
    std::optional<AskedWrite> askedWrite;
    QVector<ConfigurationSuspicion> suspicions;

    QString text(const QString &property) const { return target.leaf.text(property); }
    /// Whether there is a value at all, be it one that was not entered.
    bool hasValue() const;
};

/// One screen.
QString screenOf(const ConfigurationExplanation &explanation);
/// An object of the array that `--json` prints.
QString jsonOf(const ConfigurationExplanation &explanation);
