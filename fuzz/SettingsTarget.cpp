#include "FuzzTarget.h"
#include "mqtt/NodeSettings.h"
#include "service/Refusal.h"
#include "service/Settings.h"

#include <QRegularExpression>

// A configuration file is refused with the place of its mistake, or every setting in it is one that the
// program knows, with a value that it takes.
//
// An input is the file.

namespace {

void checkGroup(const SettingGroup &group)
{
    for (const auto &setting : group.syntax()) {
        if (!group.isSet(setting.name)) {
            continue;
        }
        const QStringList values = group.list(setting.name);
        require(!values.isEmpty(), "what is set has a value");
        require(setting.type == SettingSyntax::Type::List || values.size() == 1,
                "only a list has several values");
        for (const auto &value : values) {
            require(SettingGroup::problemOf(setting, value).isEmpty(), "a value is checked");
        }
    }
}

} // namespace

void runInput(const QByteArray &input)
{
    static const ProgramSyntax syntax = NodeSettings::syntax();
    static const QRegularExpression place(QStringLiteral("^input:([1-9]\\d*:[1-9]\\d*:)? \\S"));
    try {
        const Settings settings = Settings::fromText(syntax, input, QStringLiteral("input"));
        checkGroup(settings.settings());
        for (const auto &section : settings.sections()) {
            require(section.name == QLatin1String("report") && !section.argument.isEmpty(),
                    "a section is one that the program has");
            checkGroup(section.settings);
        }
        require(!settings.isHelpAsked() && settings.positional().isEmpty(),
                "a file has no arguments");
    } catch (const Refusal &refusal) {
        require(refusal.code == ExitCode::WrongUse, "a mistake in a file is wrong use");
        require(place.match(refusal.text).hasMatch(), "a refusal begins with its place");
    }
}
