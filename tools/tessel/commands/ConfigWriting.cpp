// tessel config set.

#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "commands/ConfigActions.h"
#include "commands/ConfigurationChange.h"
#include "text/Failure.h"

namespace {

using ConfigOption::isSet;

void checkOneValue(const ConfigurationTarget &target)
{
    if (!target.isCell && target.leaf.isArray()) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("'%1' is an array; set a cell, '%1#ROW,COLUMN', or import a "
                                     "table")
                          .arg(target.url)};
    }
}

QVariant askedValue(const CommandLine &line, const ConfigurationTarget &target)
{
    if (!isSet(line, ConfigOption::noInput)) {
        return configurationValue(line.positional(3), target.rules, target.url);
    }
    checkTakesNoInput(target.rules, target.url);
    return ConfigurationAndProcessDataTools::getNoInputValueIndicator(
        static_cast<QMetaType::Type>(target.rules.metaType));
}

QString shownValue(const QVariant &value, const ConfigurationValueRules &rules)
{
    return isNoInput(value, rules) ? QStringLiteral("(no input)") : configurationText(value, rules);
}

} // namespace

ExitCode setConfiguration(const CommandLine &line, const ConfigurationSource &source)
{
    const ConfigurationTarget target = targetAt(source, line.positional(2));
    checkNotReadOnly(target);
    checkOneValue(target);
    const QVariant value = askedValue(line, target);
    applyChange(line, source, target, target.isCell ? asCell(value, target.rules) : value,
                QStringLiteral("%1: %2 -> %3")
                    .arg(target.url, shownValue(target.value, target.rules),
                         shownValue(value, target.rules)));
    return ExitCode::Done;
}
