#pragma once

#include "live/ValueTrend.h"
#include "screen/RegionStatus.h"
#include "screen/ShownValues.h"
#include "screen/ValueTree.h"
#include "text/CellText.h"
#include "text/Terminal.h"

#include <QString>
#include <QVector>

/// What a text on the screen means, from which its colour follows.
enum class Paint { Plain, Title, Node, Dim, Good, Doubtful, Bad };

/// A piece of a line, in cells that cellText() has made harmless.
struct ScreenSpan
{
    QString text;
    Paint paint = Paint::Plain;
    bool isSelected = false;
};

using ScreenLine = QVector<ScreenSpan>;

/// Everything that is drawn.
struct ScreenFacts
{
    const ValueTree &tree;
    const ShownValues &values;
    QString title;
    RegionStatus status;
    QString age = {};                  ///< of the set
    quint64 set = 0;                   ///< its number; 0 of a single buffer
    const ValueTrend *trend = nullptr; ///< of the selected leaf, if it has one
    ValueTrend::Time now{0};           ///< in the time of the trend
    bool isTyping = false;             ///< the filter
    bool isHelpShown = false;
};

/// Makes the lines of the full screen. Only what is seen is made into text.
///
/// Remembers which row stands uppermost, so that the list moves no further than the selection asks for.
class ScreenPicture
{
public:
    explicit ScreenPicture(Characters characters) : m_characters(characters) { }

    /// As many lines as the terminal has rows, each as wide as it is.
    QVector<ScreenLine> lines(const ScreenFacts &facts, const TerminalSize &size);
    /// Rows of the list in the last picture: how far a page moves.
    int pageRows() const { return m_pageRows; }

private:
    struct Columns;

    ScreenLine cells(const QString &text, int columns, Paint paint) const;
    QVector<ScreenLine> header(const ScreenFacts &facts, const TerminalSize &size) const;
    QVector<ScreenLine> trend(const ScreenFacts &facts, const TerminalSize &size) const;
    QVector<ScreenLine> list(const ScreenFacts &facts, int rows, int columns);
    ScreenLine footer(const ScreenFacts &facts, int columns) const;
    QVector<ScreenLine> help(const TerminalSize &size) const;
    ScreenLine titles(const Columns &columns) const;
    ScreenLine row(const ScreenFacts &facts, int index, const Columns &columns) const;
    ScreenLine nodeRow(const ScreenFacts &facts, const ValueTree::Row &row,
                       const Columns &columns) const;
    ScreenLine leafRow(const ScreenFacts &facts, const ValueTree::Row &row,
                       const Columns &columns) const;
    QString symbol(Paint paint) const;

    Characters m_characters;
    int m_pinnedTop = 0;
    int m_treeTop = 0;
    int m_pageRows = 1;
};

/// How much a state weighs.
Paint paintOf(const ProcessValue &value);
