#include "checks/Checkup.h"
#include "commands/Commands.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Output.h"

#include <algorithm>

namespace {

using Level = Finding::Level;

QString levelText(Level level)
{
    switch (level) {
    case Level::Error: return QStringLiteral("error");
    case Level::Warning: return QStringLiteral("warning");
    case Level::Unknown: break;
    }
    return QStringLiteral("unknown");
}

bool isWrong(const Finding &finding)
{
    return finding.level != Level::Unknown;
}

void printLines(const Findings &findings)
{
    QString lines;
    for (const auto &finding : findings) {
        lines += printable(QStringLiteral("%1 %2 %3: %4; cure: %5")
                               .arg(levelText(finding.level), finding.rule, finding.place,
                                    finding.text, finding.cure))
                 + QLatin1Char('\n');
    }
    if (findings.isEmpty()) {
        lines = QStringLiteral("all is well\n");
    } else if (std::none_of(findings.cbegin(), findings.cend(), isWrong)) {
        lines += QStringLiteral("nothing wrong was found in what could be looked at\n");
    }
    writeBesideAnswer(lines);
}

void printJson(const Findings &findings)
{
    QStringList objects;
    for (const auto &finding : findings) {
        objects.append(jsonObject({
            {QStringLiteral("level"), jsonString(levelText(finding.level))},
            {QStringLiteral("rule"), jsonString(finding.rule)},
            {QStringLiteral("key"), finding.key.isEmpty() ? jsonNull() : jsonString(finding.key)},
            {QStringLiteral("place"), jsonString(finding.place)},
            {QStringLiteral("pid"), jsonNumber(finding.pid)},
            {QStringLiteral("text"), jsonString(finding.text)},
            {QStringLiteral("cure"), jsonString(finding.cure)},
        }));
    }
    writeBesideAnswer(jsonArray(objects) + QLatin1Char('\n'));
}

ExitCode run(const CommandLine &line)
{
    const Findings findings = checkup({line.positionalsFrom(0)});
    if (line.isSet(QStringLiteral("json"))) {
        printJson(findings);
    } else {
        printLines(findings);
    }
    return std::any_of(findings.cbegin(), findings.cend(), isWrong) ? ExitCode::AnsweredNo
                                                                    : ExitCode::Done;
}

} // namespace

Command doctorCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("doctor");
    syntax.summary = QStringLiteral("Look for what is wrong with regions, and tell the cure.");
    syntax.positionals = {
        {QStringLiteral("[FILE...]"),
         QStringLiteral("Process descriptions or folders of them; all regions without."), true}};
    syntax.leastPositionals = 0;
    syntax.mostPositionals = -1;
    syntax.options = {{QStringLiteral("json"), QStringLiteral("Print a JSON array.")}};
    syntax.examples = QStringLiteral(
        "  tessel doctor                       all regions of the machine\n"
        "  tessel doctor plant.process.json    one region, also against its description\n"
        "  tessel doctor --json                for programs\n");
    return {syntax, run};
}
