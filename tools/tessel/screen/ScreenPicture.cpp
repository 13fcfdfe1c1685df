#include "screen/ScreenPicture.h"

#include "values/StateName.h"
#include "values/ValueText.h"

#include <algorithm>
#include <chrono>

namespace {

// Rows that a terminal must have for what is not needed most.
constexpr int rowsForStatus = 6;
constexpr int rowsForTrendLine = 9;
constexpr int rowsForTrend = 16;
constexpr int rowsForTitles = 12;
/// More of a text is never seen.
constexpr int mostCells = 1024;

/// Of a trend. So seldom it moves on, and what has been seen lasts for some twenty seconds.
constexpr ValueTrend::Time columnTime = std::chrono::milliseconds(250);

const char *const helpLines[] = {
    "Up, Down         one row             PgUp, PgDn   a page",
    "Home, End        the ends            Left, Right  fold and unfold",
    "Enter, Space     fold or unfold the selected node",
    "p                pin the selected value on top, or take it down",
    "/                filter by a part of the URL, or a pattern with * and **",
    "                 Enter keeps it, Esc takes it away",
    "!                only what is not valid, or everything",
    "Ctrl-L           draw the screen anew",
    "?                this page",
    "q, Ctrl-C        end",
    "",
    "While a filter is set all nodes are unfolded. The trend at the bottom begins",
    "when a value is selected; x marks a time with an error state.",
};

QString numberText(double value)
{
    return QString::number(value);
}

/// The uppermost row, moved as little as the selected one asks for.
int scrolled(int top, int selected, int rows, int count)
{
    if (selected >= 0) {
        top = std::clamp(top, selected - rows + 1, selected);
    }
    return std::clamp(top, 0, std::max(count - rows, 0));
}

} // namespace

Paint paintOf(const ProcessValue &value)
{
    using namespace ProcessDataDefinitions;
    const ErrorTypes state = value.getErrorType();
    if (state == PROCESS_VALUE_ERROR_TYPE_VALID) {
        return Paint::Good;
    }
    return stateMeaning(state).namurState == NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION ? Paint::Doubtful
                                                                                   : Paint::Bad;
}

/// Cells of a row of the list. What a narrow terminal has no room for has 0.
struct ScreenPicture::Columns
{
    static constexpr int symbols = 3;

    explicit Columns(int all)
        : value(all >= 56   ? 14
                : all >= 34 ? 10
                            : 8)
        , unit(all >= 56   ? 8
               : all >= 40 ? 4
                           : 0)
        , state(all >= 72   ? 20
                : all >= 48 ? 12
                            : 0)
        , width(all)
    {
        if (all < 18) {
            value = 0;
        }
        const auto withGap = [](int cells) { return cells > 0 ? cells + 1 : 0; };
        name = std::max(all - symbols - withGap(value) - withGap(unit) - withGap(state), 0);
    }

    int value;
    int unit;
    int state;
    int width;
    int name;
};

QVector<ScreenLine> ScreenPicture::lines(const ScreenFacts &facts, const TerminalSize &size)
{
    if (facts.isHelpShown) {
        return help(size);
    }
    QVector<ScreenLine> all = header(facts, size);
    const QVector<ScreenLine> below = trend(facts, size);
    const int footerRows = size.rows >= 3 ? 1 : 0;
    const int listRows = std::max(size.rows - all.size() - below.size() - footerRows, 0);
    all += list(facts, listRows, size.columns);
    all += below;
    if (footerRows > 0) {
        all.append(footer(facts, size.columns));
    }
    return all.mid(0, size.rows);
}

ScreenLine ScreenPicture::cells(const QString &text, int columns, Paint paint) const
{
    return {
        {leftInCells(cellText(text.left(mostCells), m_characters), columns, m_characters), paint}};
}

QVector<ScreenLine> ScreenPicture::header(const ScreenFacts &facts, const TerminalSize &size) const
{
    const Paint paint = facts.status.level == RegionStatus::Level::Good       ? Paint::Good
                        : facts.status.level == RegionStatus::Level::Doubtful ? Paint::Doubtful
                                                                              : Paint::Bad;
    const QString status = symbol(paint) + QLatin1Char(' ') + facts.status.text;
    if (size.rows < rowsForStatus) {
        // What is wrong matters more than the name.
        return {paint == Paint::Good ? cells(facts.title, size.columns, Paint::Title)
                                     : cells(status, size.columns, paint)};
    }
    QString title = facts.title;
    if (facts.set > 0) {
        title += QStringLiteral("  set %1").arg(facts.set);
    }
    if (!facts.age.isEmpty()) {
        title += QStringLiteral("  age %1").arg(facts.age);
    }
    return {cells(title, size.columns, Paint::Title), cells(status, size.columns, paint)};
}

QVector<ScreenLine> ScreenPicture::trend(const ScreenFacts &facts, const TerminalSize &size) const
{
    if (size.rows < rowsForTrendLine) {
        return {};
    }
    const int bars = size.rows >= rowsForTrend ? 4 : 1;
    const int leaf = facts.tree.selectedLeaf();
    QString title = QStringLiteral("no value is selected");
    QVector<TrendColumn> columns(size.columns);
    std::optional<double> least;
    std::optional<double> most;
    if (leaf >= 0 && facts.trend == nullptr) {
        title = facts.tree.url(leaf) + QStringLiteral(": a text has no trend");
    } else if (leaf >= 0) {
        // Whole columns, so that a bar keeps its height while it moves.
        const ValueTrend::Time to = (facts.now / columnTime + 1) * columnTime;
        const ValueTrend::Time from = to - size.columns * columnTime;
        const QVector<ValueTrend::Part> parts = facts.trend->parts(from, to, size.columns);
        for (const auto &part : parts) {
            if (part.least) {
                least = std::min(least.value_or(*part.least), *part.least);
                most = std::max(most.value_or(*part.most), *part.most);
            }
        }
        columns = facts.trend->columns(from, to, size.columns);
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(to - from).count();
        title =
            QStringLiteral("%1, the last %2 s").arg(facts.tree.url(leaf), QString::number(seconds));
        if (least) {
            title += QStringLiteral(": %1 to %2").arg(numberText(*least), numberText(*most));
        }
    }
    QVector<ScreenLine> all{cells(title, size.columns, Paint::Title)};
    const QStringList drawn = trendBars(columns, least.value_or(0), most.value_or(0), bars,
                                        m_characters);
    for (const auto &line : drawn) {
        all.append(ScreenLine{{line, Paint::Plain}});
    }
    return all;
}

QVector<ScreenLine> ScreenPicture::list(const ScreenFacts &facts, int rows, int columns)
{
    const Columns widths(columns);
    QVector<ScreenLine> all;
    if (rows >= rowsForTitles / 2) {
        all.append(titles(widths));
    }
    const int free = rows - all.size();
    const ValueTree &tree = facts.tree;
    const int pinnedCount = tree.pinnedCount();
    const int pinnedRows = std::min(pinnedCount, std::max(free / 3, free > 1 ? 1 : 0));
    const int treeRows = free - pinnedRows;
    const int selected = tree.selected();
    m_pinnedTop = scrolled(m_pinnedTop, selected < pinnedCount ? selected : -1, pinnedRows,
                           pinnedCount);
    m_treeTop = scrolled(m_treeTop, selected >= pinnedCount ? selected - pinnedCount : -1, treeRows,
                         tree.rows().size() - pinnedCount);
    m_pageRows = std::max(treeRows, 1);
    for (int i = 0; i < pinnedRows; ++i) {
        all.append(row(facts, m_pinnedTop + i, widths));
    }
    for (int i = 0; i < treeRows; ++i) {
        const int index = pinnedCount + m_treeTop + i;
        all.append(index < tree.rows().size() ? row(facts, index, widths)
                                              : cells({}, columns, Paint::Plain));
    }
    return all;
}

ScreenLine ScreenPicture::titles(const Columns &columns) const
{
    QString text = QStringLiteral("   ")
                   + leftInCells(QStringLiteral("URL"), columns.name, m_characters);
    const auto add = [&](const char *title, int width, bool isRight) {
        if (width > 0) {
            const QString word = QString::fromLatin1(title);
            text += QLatin1Char(' ');
            text += isRight ? rightInCells(word, width, m_characters)
                            : leftInCells(word, width, m_characters);
        }
    };
    add("VALUE", columns.value, true);
    add("UNIT", columns.unit, false);
    add("STATE", columns.state, false);
    return cells(text, columns.width, Paint::Dim);
}

ScreenLine ScreenPicture::row(const ScreenFacts &facts, int index, const Columns &columns) const
{
    const ValueTree::Row &row = facts.tree.rows()[index];
    ScreenLine line = facts.tree.entry(row.entry).leaf < 0 ? nodeRow(facts, row, columns)
                                                           : leafRow(facts, row, columns);
    for (auto &span : line) {
        span.isSelected = index == facts.tree.selected();
    }
    return line;
}

ScreenLine ScreenPicture::nodeRow(const ScreenFacts &facts, const ValueTree::Row &row,
                                  const Columns &columns) const
{
    constexpr ushort folded = 0x25b8;
    constexpr ushort unfolded = 0x25be;
    const bool isFolded = facts.tree.isFolded(row.entry);
    const QChar mark = m_characters == Characters::Unicode ? QChar(isFolded ? folded : unfolded)
                                                           : QLatin1Char(isFolded ? '+' : '-');
    const ValueTree::Entry &entry = facts.tree.entry(row.entry);
    return cells(QString(Columns::symbols + 2 * entry.depth, QLatin1Char(' ')) + mark
                     + QLatin1Char(' ') + entry.name,
                 columns.width, Paint::Node);
}

ScreenLine ScreenPicture::leafRow(const ScreenFacts &facts, const ValueTree::Row &row,
                                  const Columns &columns) const
{
    const ValueTree::Entry &entry = facts.tree.entry(row.entry);
    const std::optional<ProcessValue> value = facts.values.value(entry.leaf);
    const Paint paint = value ? paintOf(*value) : Paint::Dim;
    const auto text = [this](const QString &given) {
        return cellText(given.left(mostCells), m_characters);
    };
    const QString name = row.isPinned ? facts.tree.url(entry.leaf)
                                      : QString(2 * entry.depth, QLatin1Char(' ')) + entry.name;
    const bool isMarked = facts.tree.isPinned(row.entry);
    ScreenLine line{{symbol(paint) + QLatin1Char(isMarked ? '*' : ' ') + QLatin1Char(' '), paint},
                    {leftInCells(text(name), columns.name, m_characters), Paint::Plain}};
    const auto add = [&](const QString &cell, Paint its) {
        line.append({QLatin1Char(' ') + cell, its});
    };
    if (columns.value > 0) {
        const QString shown = value ? shortValueText(*value) : QString();
        add(rightInCells(text(shown), columns.value, m_characters), Paint::Plain);
    }
    if (columns.unit > 0) {
        add(leftInCells(text(facts.values.unit(entry.leaf)), columns.unit, m_characters),
            Paint::Plain);
    }
    if (columns.state > 0) {
        const QString state = value ? stateName(value->getErrorType()) : QStringLiteral("unknown");
        add(leftInCells(state, columns.state, m_characters), paint);
    }
    // Of a terminal of a few columns not even the symbol may fit.
    if (columns.width < Columns::symbols) {
        return cells(line[0].text.left(columns.width), columns.width, paint);
    }
    return line;
}

ScreenLine ScreenPicture::footer(const ScreenFacts &facts, int columns) const
{
    const ValueTree &tree = facts.tree;
    if (facts.isTyping) {
        return cells(QLatin1Char('/') + tree.filter() + QLatin1Char('_'), columns, Paint::Title);
    }
    if (!tree.isRestricted()) {
        return cells(QStringLiteral("? help  q end  / filter  ! not valid  p pin  Enter fold"),
                     columns, Paint::Dim);
    }
    QStringList parts;
    if (!tree.filter().isEmpty()) {
        parts.append(QStringLiteral("/%1").arg(tree.filter()));
    }
    if (tree.isInvalidOnly()) {
        parts.append(QStringLiteral("only not valid"));
    }
    return cells(QStringLiteral("%1 of %2: %3  ? help")
                     .arg(tree.shownLeafCount())
                     .arg(tree.leafCount())
                     .arg(parts.join(QStringLiteral(", "))),
                 columns, Paint::Title);
}

QVector<ScreenLine> ScreenPicture::help(const TerminalSize &size) const
{
    QVector<ScreenLine> all{
        cells(QStringLiteral("tessel watch --tui: any key goes back"), size.columns, Paint::Title)};
    for (const char *line : helpLines) {
        all.append(cells(QString::fromLatin1(line), size.columns, Paint::Plain));
    }
    while (all.size() < size.rows) {
        all.append(cells({}, size.columns, Paint::Plain));
    }
    return all.mid(0, size.rows);
}

QString ScreenPicture::symbol(Paint paint) const
{
    const bool isUnicode = m_characters == Characters::Unicode;
    switch (paint) {
    case Paint::Good: return isUnicode ? QStringLiteral("\u25cf") : QStringLiteral("o");
    case Paint::Doubtful: return isUnicode ? QStringLiteral("\u25b2") : QStringLiteral("^");
    case Paint::Bad: return isUnicode ? QStringLiteral("\u2716") : QStringLiteral("X");
    default: return QStringLiteral("?");
    }
}
