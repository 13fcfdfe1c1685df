#include "commands/ConfigurationExplanation.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Validation/DescriptionCheck.h"
#include "Validation/DescriptionPlaces.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/LogCollector.h"
#include "text/Output.h"

#include <QHash>
#include <QPair>
#include <QSet>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Level = DescriptionProblem::Level;
using Suspicions = QVector<ConfigurationSuspicion>;

/// The problems of a file as `tessel validate` finds them, looked for once.
class FileProblems
{
public:
    const QVector<DescriptionProblem> &of(const QString &path)
    {
        const auto known = m_problems.constFind(path);
        return known != m_problems.cend()
                   ? *known
                   : *m_problems.insert(path, DescriptionCheck::check({path}));
    }

private:
    QHash<QString, QVector<DescriptionProblem>> m_problems;
};

/// All values at the URLs, each once.
QVector<ConfigurationTarget> targetsAt(const ConfigurationSource &source, const QStringList &urls)
{
    QVector<ConfigurationTarget> targets;
    const auto add = [&targets](const ConfigurationTarget &target) {
        for (const auto &known : std::as_const(targets)) {
            if (known.url == target.url) {
                return;
            }
        }
        targets.append(target);
    };
    for (const auto &url : urls) {
        SelectorUrlArrayIndex index;
        QString withoutIndex;
        SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, withoutIndex);
        if (index.isValid()) {
            add(targetAt(source, url));
            continue;
        }
        const QVector<ConfigurationLeaf> leaves = source.leavesAt(url);
        for (const auto &leaf : leaves) {
            add(targetOf(leaf));
        }
    }
    return targets;
}

FileStamp stampOf(const ConfigurationFile &file)
{
    const QString by = Definitions::getKeyDataPropertyModifiedBy();
    const QString time = Definitions::getKeyDataPropertyLastModified();
    return {file.root->hasProperty(by) && file.root->hasProperty(time),
            file.root->getProperty(by).toString(), file.root->getProperty(time).toString()};
}

void addStamp(Suspicions &found, const FileStamp &stamp)
{
    if (!stamp.hasPlace) {
        found.append(
            {QStringLiteral("no-stamp"),
             QStringLiteral("the file has no place for a stamp: nobody sees who changed it "
                            "last, and when")});
        return;
    }
    if (stamp.lastModified.isEmpty() || stamp.modifiedBy.isEmpty()) {
        found.append(
            {QStringLiteral("never-stamped"),
             QStringLiteral("the file is not stamped: its values are those that it was made "
                            "with, or were changed by other means")});
        return;
    }
    const QDateTime time = stamp.time();
    if (!time.isValid()) {
        found.append(
            {QStringLiteral("stamp-unreadable"),
             QStringLiteral("the time of the stamp, '%1', is none").arg(stamp.lastModified)});
    } else if (time > QDateTime::currentDateTimeUtc()) {
        found.append({QStringLiteral("stamp-future"),
                      QStringLiteral("the stamp comes from the future: a clock is or was wrong")});
    }
}

/// The cells of an array, but for the one that is meant.
QStringList otherCellsOf(const ConfigurationTarget &target)
{
    QStringList urls;
    const QVariantList rows =
        target.leaf.element->getProperty(Definitions::getKeyDataPropertyValue()).toList();
    for (int row = 0; row < rows.size(); ++row) {
        const bool isRow = rows.at(row).userType() == QMetaType::QVariantList;
        const int columns = isRow ? rows.at(row).toList().size() : 1;
        for (int column = 0; column < columns; ++column) {
            const QString url = QStringLiteral("%1#%2,%3")
                                    .arg(target.leaf.url, QString::number(row),
                                         QString::number(column));
            if (url != target.url) {
                urls.append(url);
            }
        }
    }
    return urls;
}

/// Where those stand, for a target that is a cell. What is wrong there is none of its problems.
QSet<QPair<int, int>> placesOfOtherCells(const ConfigurationTarget &target,
                                         const ConfigurationSource &source)
{
    QSet<QPair<int, int>> places;
    if (target.isCell) {
        const auto found = DescriptionPlaces::findAll(source.path(), otherCellsOf(target),
                                                      DescriptionPlaces::Kind::Configuration);
        for (const auto &place : found) {
            if (place) {
                places.insert({place->line, place->column});
            }
        }
    }
    return places;
}

QString limitsRule()
{
    return QStringLiteral("value-outside-limits");
}

void addProblems(Suspicions &found, const QVector<DescriptionProblem> &problems, const QString &url,
                 Level level, const QSet<QPair<int, int>> &others)
{
    for (const auto &problem : problems) {
        if (problem.url == url && problem.level == level
            && !others.contains({problem.line, problem.column})) {
            found.append({problem.rule, problem.text});
        }
    }
}

/// Of a cell. Whether a whole value is within its limits is one of the rules for descriptions, by which an array
/// has the problems of all its cells.
void addLimits(Suspicions &found, const ConfigurationTarget &target)
{
    if (!target.isCell) {
        return;
    }
    const auto isOfAnyCell = [](const ConfigurationSuspicion &suspicion) {
        return suspicion.name == limitsRule();
    };
    found.erase(std::remove_if(found.begin(), found.end(), isOfAnyCell), found.end());
    const QString problem = limitProblemOf(target);
    if (!problem.isEmpty()) {
        found.append({limitsRule(), problem});
    }
}

ConfigurationExplanation explanationOf(const ConfigurationTarget &target,
                                       const ConfigurationSource &source, const CommandLine &line,
                                       FileProblems &problems)
{
    const ConfigurationFile &file = source.fileOf(target.leaf);
    const QString path = file.entry.filePath();
    const QString urlInFile = file.url.isEmpty() ? target.leaf.url
                                                 : target.leaf.url.mid(file.url.size() + 1);
    ConfigurationExplanation explanation{
        target, {}, path, stampOf(file), writeOfPresentValue(source, target), {}, {}};
    const QString option = QLatin1String(ExplainOption::value);
    if (line.isSet(option)) {
        const QString text = line.value(option);
        explanation.askedWrite = {text, writeOfText(source, target, text)};
    }
    const QSet<QPair<int, int>> others = placesOfOtherCells(target, source);
    addProblems(explanation.suspicions, problems.of(path), urlInFile, Level::Error, others);
    addProblems(explanation.suspicions, problems.of(path), urlInFile, Level::Warning, others);
    addLimits(explanation.suspicions, target);
    addStamp(explanation.suspicions, explanation.stamp);
    return explanation;
}

QVector<ConfigurationExplanation> explanationsOf(const ConfigurationSource &source,
                                                 const CommandLine &line)
{
    const QVector<ConfigurationTarget> targets = targetsAt(source, line.positionalsFrom(1));
    QStringList urls;
    for (const auto &target : targets) {
        urls.append(target.leaf.url);
    }
    const auto places = DescriptionPlaces::findAll(source.path(), urls,
                                                   DescriptionPlaces::Kind::Configuration);
    FileProblems problems;
    QVector<ConfigurationExplanation> explanations;
    for (int i = 0; i < targets.size(); ++i) {
        explanations.append(explanationOf(targets.at(i), source, line, problems));
        explanations.last().place = places.at(i);
    }
    return explanations;
}

} // namespace

QDateTime FileStamp::time() const
{
    return QDateTime::fromString(lastModified, Qt::ISODateWithMs);
}

bool ConfigurationExplanation::hasValue() const
{
    return target.isCell
           || target.leaf.element->hasProperty(Definitions::getKeyDataPropertyValue());
}

bool isConfigurationValue(const QString &path, const QString &url)
{
    try {
        return !targetsAt(ConfigurationSource(path), {url}).isEmpty();
    } catch (const Failure &) {
        LogCollector::takeReasons();
        return false;
    }
}

ExitCode explainConfiguration(const CommandLine &line)
{
    const bool isJson = line.isSet(QLatin1String(ExplainOption::json));
    const ConfigurationSource source(line.positional(0));
    QStringList texts;
    const QVector<ConfigurationExplanation> explanations = explanationsOf(source, line);
    for (const auto &explanation : explanations) {
        texts.append(isJson ? jsonOf(explanation) : screenOf(explanation));
    }
    writeOutput(isJson ? jsonArray(texts) + QLatin1Char('\n') : texts.join(QLatin1Char('\n')));
    return ExitCode::Done;
}
