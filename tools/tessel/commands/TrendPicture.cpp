// The picture of tessel trend --svg.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "commands/TrendReport.h"
#include "text/SvgDrawing.h"

#include <algorithm>

namespace {

using Course = TrendReport::Course;

// In pixels.
constexpr int margin = 16;
constexpr int gutter = 96;
constexpr int plotWidth = 768;
constexpr int plotHeight = 150;
constexpr int titleHeight = 44;
constexpr int fieldHeight = titleHeight + plotHeight + 34;
constexpr int pictureWidth = gutter + plotWidth + margin;
constexpr int textSize = 12;
constexpr int timeMarks = 4;

const QLatin1String ink("#1f2933");
const QLatin1String paleInk("#5b6b7b");
const QLatin1String line("#1f6feb");
const QLatin1String frame("#c3ccd6");
const QLatin1String gapColour("#f6c9c6");

/// One value over the time.
class Field
{
public:
    Field(SvgDrawing &drawing, const Course &course, ValueTrend::Time time, int top)
        : m_drawing(drawing)
        , m_course(course)
        , m_time(time)
        , m_plotTop(top + titleHeight)
        , m_parts(course.trend.parts(ValueTrend::Time(0), time, plotWidth))
        , m_least(course.trend.least().value_or(0))
        , m_most(course.trend.most().value_or(0))
    {
    }

    void draw()
    {
        drawTitle();
        m_drawing.rectangle({gutter, double(m_plotTop), plotWidth, plotHeight},
                            QStringLiteral("#ffffff"), {}, {{"stroke", frame}});
        drawGaps();
        drawCourse();
        drawAxes();
    }

private:
    void drawTitle();
    void drawGaps();
    void drawCourse();
    void drawAxes();

    /// Where a number lies. One that never changes lies in the middle.
    double y(double value) const
    {
        const double range = m_most / 2 - m_least / 2;
        const double part = range > 0 ? (value / 2 - m_least / 2) / range : 0.5;
        return m_plotTop + plotHeight - 4 - part * (plotHeight - 8);
    }
    QString place(int column, double value, char command) const
    {
        return QStringLiteral("%1%2 %3 ")
            .arg(QLatin1Char(command))
            .arg(gutter + column)
            .arg(y(value), 0, 'f', 1);
    }

    SvgDrawing &m_drawing;
    const Course &m_course;
    ValueTrend::Time m_time;
    int m_plotTop;
    QVector<ValueTrend::Part> m_parts; ///< a column of pixels each
    double m_least;
    double m_most;
};

void Field::drawTitle()
{
    const QString unit = textProperty(
        m_course.leaf, ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
    const auto figure = [](const std::optional<double> &number) {
        return number ? QString::number(*number) : QStringLiteral("-");
    };
    const ValueTrend &trend = m_course.trend;
    m_drawing.text(gutter, m_plotTop - 24, m_course.leaf.url, textSize + 2, ink,
                   {{"font-weight", QStringLiteral("bold")}});
    m_drawing.text(gutter, m_plotTop - 8,
                   QStringLiteral("%1min %2, max %3, mean %4, %5 valid, %6 not valid")
                       .arg(unit.isEmpty() ? QString() : unit + QStringLiteral("; "),
                            figure(trend.least()), figure(trend.most()), figure(trend.mean()),
                            QString::number(trend.valid()), QString::number(trend.erroneous())),
                   textSize, paleInk);
}

void Field::drawGaps()
{
    for (int column = 0; column < m_parts.size();) {
        int end = column;
        while (end < m_parts.size() && m_parts[end].hasError) {
            ++end;
        }
        if (end > column) {
            m_drawing.rectangle(
                {double(gutter + column), double(m_plotTop), double(end - column), plotHeight},
                gapColour, QStringLiteral("not valid"));
        }
        column = end + 1;
    }
}

void Field::drawCourse()
{
    QString path;
    bool isDrawing = false;
    for (int column = 0; column < m_parts.size(); ++column) {
        const ValueTrend::Part &part = m_parts[column];
        if (part.hasError || !part.first) {
            isDrawing = false;
            continue;
        }
        // From where it came to where it goes, and between the two as far as it got.
        path += place(column, *part.first, isDrawing ? 'L' : 'M');
        if (*part.least < *part.most) {
            path += place(column, *part.least, 'L') + place(column, *part.most, 'L')
                    + place(column, *part.last, 'L');
        }
        // Of one column alone nothing would be seen.
        path += place(column + 1, *part.last, 'L');
        isDrawing = true;
    }
    if (!path.isEmpty()) {
        m_drawing.path(path.trimmed(), {{"fill", QStringLiteral("none")},
                                        {"stroke", line},
                                        {"stroke-width", QStringLiteral("1.5")},
                                        {"stroke-linejoin", QStringLiteral("round")}});
    }
}

void Field::drawAxes()
{
    const SvgDrawing::Attributes atEnd{{"text-anchor", QStringLiteral("end")}};
    if (m_course.trend.least()) {
        m_drawing.text(gutter - 8, y(m_most) + 4, QString::number(m_most), textSize, paleInk,
                       atEnd);
    }
    if (m_least < m_most) {
        m_drawing.text(gutter - 8, y(m_least) + 4, QString::number(m_least), textSize, paleInk,
                       atEnd);
    }
    const double seconds = std::chrono::duration<double>(m_time).count();
    for (int mark = 0; mark <= timeMarks; ++mark) {
        const double x = gutter + double(plotWidth) * mark / timeMarks;
        m_drawing.verticalLine(x, m_plotTop + plotHeight, m_plotTop + plotHeight + 5,
                               {{"stroke", frame}});
        m_drawing.text(x, m_plotTop + plotHeight + 18,
                       QStringLiteral("%1 s").arg(seconds * mark / timeMarks, 0, 'g', 3), textSize,
                       paleInk,
                       {{"text-anchor",
                         mark == timeMarks ? QStringLiteral("end") : QStringLiteral("middle")}});
    }
}

} // namespace

QByteArray pictureOf(const TrendReport &report)
{
    const int height = 2 * margin + fieldHeight * std::max(report.courses.size(), 1);
    SvgDrawing drawing(pictureWidth, height, QStringLiteral("Values of %1").arg(report.key));
    int top = margin;
    for (const auto &course : report.courses) {
        Field(drawing, course, report.time, top).draw();
        top += fieldHeight;
    }
    return drawing.finish();
}
