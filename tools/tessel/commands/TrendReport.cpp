#include "commands/TrendReport.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using Course = TrendReport::Course;

QString unitOf(const Course &course)
{
    return textProperty(course.leaf,
                        ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
}

double secondsOf(ValueTrend::Time time)
{
    return std::chrono::duration<double>(time).count();
}

QString figure(const std::optional<double> &number)
{
    return number ? QString::number(*number) : QStringLiteral("-");
}

QString figuresOf(const Course &course)
{
    const ValueTrend &trend = course.trend;
    const QString unit = unitOf(course);
    return QStringLiteral("%1%2: min %3, max %4, mean %5, %6 valid, %7 not valid")
        .arg(course.leaf.url, unit.isEmpty() ? QString() : QStringLiteral(" [%1]").arg(unit),
             figure(trend.least()), figure(trend.most()), figure(trend.mean()),
             QString::number(trend.valid()), QString::number(trend.erroneous()));
}

/// All digits, so that it reads back as what it was.
QString jsonDouble(const std::optional<double> &number)
{
    using namespace ProcessDataDefinitions;
    return number ? valueJson({QVariant(*number), PROCESS_VALUE_ERROR_TYPE_VALID}) : jsonNull();
}

/// All its digits; empty with an error state.
QString terseValue(const TrendPoint &point)
{
    using namespace ProcessDataDefinitions;
    return valueText({QVariant(point.value), point.state.value_or(PROCESS_VALUE_ERROR_TYPE_VALID)});
}

QString jsonOf(const TrendPoint &point)
{
    const auto state = point.state.value_or(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    return jsonObject({
        {QStringLiteral("seconds"), QString::number(secondsOf(point.time), 'f', 6)},
        {QStringLiteral("value"), point.isErroneous() ? jsonNull() : jsonDouble(point.value)},
        {QStringLiteral("state"), QString::number(static_cast<int>(state))},
        {QStringLiteral("stateName"), jsonString(stateName(state))},
    });
}

QString jsonOf(const Course &course)
{
    const ValueTrend &trend = course.trend;
    QStringList points;
    for (const auto &point : trend.points()) {
        points.append(jsonOf(point));
    }
    return jsonObject({
        {QStringLiteral("url"), jsonString(course.leaf.url)},
        {QStringLiteral("unit"), jsonString(unitOf(course))},
        {QStringLiteral("min"), jsonDouble(trend.least())},
        {QStringLiteral("max"), jsonDouble(trend.most())},
        {QStringLiteral("mean"), jsonDouble(trend.mean())},
        {QStringLiteral("valid"), QString::number(trend.valid())},
        {QStringLiteral("notValid"), QString::number(trend.erroneous())},
        {QStringLiteral("points"), jsonArray(points, QStringLiteral("    "))},
    });
}

} // namespace

QStringList linesOf(const TrendReport &report, int columns, int barLines, Characters characters)
{
    QStringList lines{QStringLiteral("%1: %2 s")
                          .arg(report.key, QString::number(secondsOf(report.time), 'f', 1))};
    for (const auto &course : report.courses) {
        lines.append(figuresOf(course));
        const QVector<TrendColumn> drawn = course.trend.columns(ValueTrend::Time(0), report.time,
                                                                columns);
        lines += trendBars(drawn, course.trend.least().value_or(0), course.trend.most().value_or(0),
                           barLines, characters);
    }
    return lines;
}

QString terseText(const TrendReport &report)
{
    QString text;
    // All values of a set were taken at once.
    const std::size_t sets = report.courses.isEmpty() ? 0 : report.courses[0].trend.points().size();
    for (std::size_t set = 0; set < sets; ++set) {
        QStringList fields;
        for (const auto &course : report.courses) {
            fields.append(terseValue(course.trend.points()[set]));
        }
        text += fields.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return text;
}

QString jsonOf(const TrendReport &report)
{
    QStringList values;
    for (const auto &course : report.courses) {
        values.append(jsonOf(course));
    }
    return jsonObject({
        {QStringLiteral("key"), jsonString(report.key)},
        {QStringLiteral("seconds"), QString::number(secondsOf(report.time), 'f', 3)},
        {QStringLiteral("values"), jsonArray(values)},
    });
}
