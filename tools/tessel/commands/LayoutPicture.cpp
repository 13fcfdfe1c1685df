// The picture of tessel layout --svg.

#include "commands/BufferLayout.h"
#include "commands/LayoutCells.h"
#include "text/SvgDrawing.h"

#include <QMap>

#include <algorithm>
#include <array>

namespace {

using Piece = BufferMap::Piece;
using What = BufferMap::What;

// A row is a cache line of the first buffer.
constexpr quint64 rowBytes = CacheLines::sm_size;
/// More rows, or more pieces, are not drawn one by one.
constexpr quint64 mostRows = 256;
constexpr quint64 mostRectangles = 20000;
constexpr quint64 mostCells = rowBytes * 128;

// In pixels.
constexpr int margin = 16;
constexpr int gutter = 76;
constexpr int byteWidth = 15;
constexpr int rowHeight = 24;
constexpr int rowGap = 6;
constexpr int legendStep = 138;
constexpr int legendHeight = 22;
constexpr int pictureWidth = gutter + int(rowBytes) * byteWidth + margin;

const QLatin1String ink("#1f2933");
const QLatin1String paleInk("#5b6b7b");
const QLatin1String overlapColour("#d7263d");
const QLatin1String crossingColour("#111111");

QString colourAt(std::size_t index)
{
    return QLatin1String(TypeColours::at(index).colour);
}

QString patternId(std::size_t index)
{
    return QStringLiteral("state%1").arg(index);
}

QString shortened(const QString &text, int length)
{
    return text.size() <= length ? text : QStringLiteral("\u2026") + text.right(length - 1);
}

QString bytesText(quint64 begin, quint64 end)
{
    return end - begin == 1 ? QStringLiteral("byte %1").arg(begin)
                            : QStringLiteral("bytes %1 to %2").arg(begin).arg(end - 1);
}

/// What states of the types are filled with: the colour of the type, made paler by stripes.
void addPatterns(SvgDrawing &drawing, const std::vector<std::size_t> &types)
{
    for (const std::size_t type : types) {
        drawing.stripes(patternId(type), colourAt(type));
    }
}

SvgDrawing::Attributes border(const QString &colour)
{
    return {{"stroke", colour}, {"stroke-width", QStringLiteral("0.6")}};
}

/// The whole picture. Which rows it shows is found out first, as its height depends on them.
class Picture
{
public:
    explicit Picture(const BufferLayout &layout) : m_layout(layout), m_map(layout.map())
    {
        findTypes();
        findRows();
    }

    QByteArray draw()
    {
        const int legendEntries = static_cast<int>(m_types.size()) + (m_isOverview ? 2 : 5);
        const int perRow = (pictureWidth - 2 * margin) / legendStep;
        m_legendTop = m_isOverview ? 84 : 66;
        m_top = m_legendTop + (legendEntries + perRow - 1) / perRow * legendHeight + 30;
        const quint64 rows = m_isOverview ? (cellCount() + rowBytes - 1) / rowBytes
                                          : quint64(m_rows.size());
        const int height = m_top + static_cast<int>(rows) * (rowHeight + rowGap) + margin;
        SvgDrawing drawing(pictureWidth, height,
                           heading() + QStringLiteral(": ") + bufferText(m_layout));
        addPatterns(drawing, m_types);
        drawHead(drawing);
        drawLegend(drawing);
        if (m_isOverview) {
            drawCells(drawing);
        } else {
            drawRows(drawing);
        }
        return drawing.finish();
    }

private:
    QString heading() const
    {
        const DescriptionSource &description = m_layout.description();
        return description.key().isEmpty() ? description.path() : description.key();
    }

    void findTypes()
    {
        std::array<bool, TypeColours::count> isThere{};
        for (const Piece &piece : m_map.pieces()) {
            if (piece.what != What::Hole) {
                isThere[colourOf(piece)] = true;
            }
        }
        for (std::size_t i = 0; i < isThere.size(); ++i) {
            if (isThere[i]) {
                m_types.push_back(i);
            }
        }
    }

    /// The rows with a piece that is to be shown, by number; or that there are too many.
    void findRows()
    {
        quint64 rectangles = 0;
        for (const Piece &piece : m_map.pieces()) {
            const quint64 end = std::min(piece.end, m_map.end());
            if (piece.begin >= end || !m_layout.isShown(piece)) {
                continue;
            }
            const quint64 last = (end - 1) / rowBytes;
            quint64 row = piece.begin / rowBytes;
            rectangles += last - row + 1;
            if (rectangles > mostRectangles) {
                break;
            }
            for (row = m_rows.isEmpty() ? row : std::max(row, m_rows.lastKey() + 1); row <= last;
                 ++row) {
                m_rows.insert(row, m_rows.size());
            }
        }
        m_isOverview = rectangles > mostRectangles || quint64(m_rows.size()) > mostRows;
        while ((m_map.end() + m_unit - 1) / m_unit > mostCells) {
            m_unit *= 2;
        }
    }

    std::size_t colourOf(const Piece &piece) const
    {
        return TypeColours::indexOf(m_layout.slotOf(piece).type);
    }

    void drawHead(SvgDrawing &drawing) const
    {
        drawing.text(margin, 30, heading(), 18, ink, {{"font-weight", QStringLiteral("bold")}});
        drawing.text(margin, 50,
                     QStringLiteral("%1; %2 used, %3 free, %4 overlapping, %5 crossings")
                         .arg(bufferText(m_layout))
                         .arg(m_map.used())
                         .arg(m_map.free())
                         .arg(m_map.overlapping())
                         .arg(m_layout.crossingCount()),
                     12, paleInk);
        if (m_isOverview) {
            drawing.text(
                margin, 68,
                QStringLiteral("An overview: a cell is %1 bytes, in the colour of the type that "
                               "has most of them, paler the more are free.")
                    .arg(m_unit),
                12, paleInk);
        }
    }

    void drawLegend(SvgDrawing &drawing) const
    {
        int place = 0;
        const auto next = [this, &place](double &x, double &y) {
            constexpr int perRow = (pictureWidth - 2 * margin) / legendStep;
            const int row = place / perRow;
            x = margin + place % perRow * legendStep;
            y = m_legendTop + row * legendHeight;
            ++place;
        };
        const auto add = [&](const QString &fill, const QString &stroke, const QString &name) {
            double x = 0;
            double y = 0;
            next(x, y);
            drawing.rectangle({x, y, 18, 14}, fill, {}, border(stroke));
            drawing.text(x + 24, y + 12, name, 12, ink);
        };
        for (const std::size_t type : m_types) {
            const QString name = QLatin1String(TypeColours::at(type).type);
            add(colourAt(type), paleInk, name.isEmpty() ? QStringLiteral("other type") : name);
        }
        add(QStringLiteral("#ffffff"), paleInk, QStringLiteral("hole"));
        add(overlapColour, overlapColour, QStringLiteral("overlap"));
        if (m_isOverview) {
            return;
        }
        add(QStringLiteral("url(#%1)").arg(patternId(m_types.front())), paleInk,
            QStringLiteral("error state"));
        add(crossingColour, crossingColour, QStringLiteral("crosses a line"));
        if (hasShift()) {
            double x = 0;
            double y = 0;
            next(x, y);
            drawing.verticalLine(x + 9, y - 2, y + 16, dashes());
            drawing.text(x + 24, y + 12, QStringLiteral("2nd buffer's line"), 12, ink);
        }
    }

    /// Whether the lines of the second buffer begin elsewhere than those of the first one.
    bool hasShift() const
    {
        return m_layout.description().isDoubleBuffered() && m_layout.lines().shiftOfSecond() != 0;
    }

    static SvgDrawing::Attributes dashes()
    {
        return {{"stroke", paleInk},
                {"stroke-width", QStringLiteral("1")},
                {"stroke-dasharray", QStringLiteral("3 2")}};
    }

    void drawRows(SvgDrawing &drawing) const
    {
        for (int byte = 0; byte < int(rowBytes); byte += 8) {
            drawing.text(gutter + byte * byteWidth + 2, m_top - 8, QString::number(byte), 10,
                         paleInk);
        }
        for (auto row = m_rows.cbegin(); row != m_rows.cend(); ++row) {
            drawRowFrame(drawing, row.key(), row.value());
        }
        for (const Piece &piece : m_map.pieces()) {
            drawPiece(drawing, piece);
        }
        for (const BufferMap::Range &range : m_map.overlaps()) {
            forRows(range.begin, range.end,
                    [&](quint64 begin, quint64 end, const SvgDrawing::Box &box) {
                        drawing.rectangle(
                            box, overlapColour,
                            QStringLiteral("%1 belong to more than one").arg(bytesText(begin, end)),
                            {{"fill-opacity", QStringLiteral("0.75")}});
                    });
        }
        for (const Piece &piece : m_map.pieces()) {
            drawCrossing(drawing, piece);
        }
    }

    void drawRowFrame(SvgDrawing &drawing, quint64 row, int place) const
    {
        const double y = yOf(place);
        const quint64 bytes = std::min(rowBytes, m_map.end() - row * rowBytes);
        drawing.text(gutter - 8, y + 16, QString::number(row * rowBytes), 11, paleInk,
                     {{"text-anchor", QStringLiteral("end")}});
        drawing.rectangle({double(gutter), y, double(bytes) * byteWidth, double(rowHeight)},
                          QStringLiteral("#ffffff"), {}, border(QStringLiteral("#c3ccd5")));
        const quint64 shift = m_layout.lines().shiftOfSecond();
        if (hasShift() && shift < bytes) {
            drawing.verticalLine(gutter + double(shift) * byteWidth, y - 3, y + rowHeight + 3,
                                 dashes());
        }
    }

    void drawPiece(SvgDrawing &drawing, const Piece &piece) const
    {
        const QString title = titleOf(piece);
        const bool isHole = piece.what == What::Hole;
        const std::size_t type = isHole ? 0 : colourOf(piece);
        const QString fill = isHole ? QStringLiteral("#ffffff")
                             : piece.what == What::State
                                 ? QStringLiteral("url(#%1)").arg(patternId(type))
                                 : colourAt(type);
        bool isFirst = true;
        forRows(piece.begin, piece.end, [&](quint64, quint64, const SvgDrawing::Box &box) {
            const QVector<SvgDrawing::Box> parts = piece.isBit ? bitBoxes(piece, box)
                                                               : QVector<SvgDrawing::Box>{box};
            for (const SvgDrawing::Box &part : parts) {
                drawing.rectangle(part, fill, title,
                                  border(isHole ? QStringLiteral("#c3ccd5") : ink));
            }
            constexpr double smallest = 4 * byteWidth;
            if (isFirst && piece.what == What::Value && box.width >= smallest) {
                constexpr double perCharacter = 6.2;
                drawing.text(box.x + 4, box.y + 16,
                             shortened(m_layout.urlOf(piece), int((box.width - 8) / perCharacter)),
                             11, ink, {{"pointer-events", QStringLiteral("none")}});
            }
            isFirst = false;
        });
    }

    QString titleOf(const Piece &piece) const
    {
        const QString place = bytesText(piece.begin, piece.end);
        if (piece.what == What::Hole) {
            return place + QStringLiteral(": hole");
        }
        const QString type = piece.what == What::Value
                                 ? QLatin1String(", ") + typeText(m_layout.slotOf(piece))
                                 : QString();
        const QStringList notes = m_layout.notesOf(piece);
        return place + QStringLiteral(": ") + m_layout.nameOf(piece) + type
               + (notes.isEmpty() ? QString()
                                  : QStringLiteral("; ") + notes.join(QStringLiteral("; ")));
    }

    /// Bit 7 at the left.
    static QVector<SvgDrawing::Box> bitBoxes(const Piece &piece, const SvgDrawing::Box &byte)
    {
        constexpr int bits = 8;
        QVector<SvgDrawing::Box> boxes;
        for (int bit = 0; bit < bits; ++bit) {
            if ((piece.bits >> bit & 1U) != 0) {
                boxes.append({byte.x + byte.width * (bits - 1 - bit) / bits, byte.y,
                              byte.width / bits, byte.height});
            }
        }
        return boxes;
    }

    /// A bar where a line ends inside a piece: in the first buffer at the end of a row.
    void drawCrossing(SvgDrawing &drawing, const Piece &piece) const
    {
        const CacheLines::Crossing crossing = m_layout.crossingOf(piece);
        if (!crossing.isAny()) {
            return;
        }
        const quint64 shift = m_layout.lines().shiftOfSecond();
        forRows(piece.begin, piece.end,
                [&](quint64 begin, quint64 end, const SvgDrawing::Box &box) {
                    const quint64 rowBegin = begin / rowBytes * rowBytes;
                    const auto bar = [&](double x) {
                        drawing.verticalLine(
                            x, box.y - 3, box.y + box.height + 3,
                            {{"stroke", crossingColour}, {"stroke-width", QStringLiteral("3.5")}});
                    };
                    if (crossing.inFirst) {
                        bar(begin == rowBegin ? box.x : box.x + box.width);
                    }
                    if (crossing.inSecond && begin < rowBegin + shift && rowBegin + shift < end) {
                        bar(gutter + double(shift) * byteWidth);
                    }
                });
    }

    double yOf(int place) const { return m_top + double(place) * (rowHeight + rowGap); }

    /// Calls @p take with the part of a range in each row that is drawn.
    template <class Take>
    void forRows(quint64 begin, quint64 end, const Take &take) const
    {
        end = std::min(end, m_map.end());
        for (auto row = m_rows.lowerBound(begin / rowBytes);
             row != m_rows.cend() && row.key() * rowBytes < end; ++row) {
            const quint64 rowBegin = row.key() * rowBytes;
            const quint64 from = std::max(begin, rowBegin);
            const quint64 to = std::min(end, rowBegin + rowBytes);
            if (from < to) {
                take(from, to,
                     SvgDrawing::Box{gutter + double(from - rowBegin) * byteWidth, yOf(row.value()),
                                     double(to - from) * byteWidth, double(rowHeight)});
            }
        }
    }

    // Of an overview.

    quint64 cellCount() const { return (m_map.end() + m_unit - 1) / m_unit; }

    void drawCells(SvgDrawing &drawing) const
    {
        const std::vector<LayoutCell> all = layoutCells(m_layout, m_unit);
        for (std::size_t i = 0; i < all.size(); ++i) {
            const LayoutCell &cell = all[i];
            const quint64 begin = i * m_unit;
            const quint64 end = std::min(begin + m_unit, m_map.end());
            const SvgDrawing::Box box{gutter + double(i % rowBytes) * byteWidth,
                                      yOf(static_cast<int>(i / rowBytes)), double(byteWidth),
                                      double(rowHeight)};
            if (i % rowBytes == 0) {
                drawing.text(gutter - 8, box.y + 16, QString::number(begin), 11, paleInk,
                             {{"text-anchor", QStringLiteral("end")}});
            }
            const auto most = std::max_element(cell.bytes.cbegin(), cell.bytes.cend());
            const double share = 1 - double(cell.free) / double(end - begin);
            auto more = border(QStringLiteral("#c3ccd5"));
            more.append({"fill-opacity", QString::number(std::max(share, 0.15), 'g', 3)});
            const QString fill = cell.overlapping > 0 ? QString(overlapColour)
                                 : *most == 0         ? QStringLiteral("#ffffff")
                                              : colourAt(std::size_t(most - cell.bytes.cbegin()));
            drawing.rectangle(box, fill, titleOf(cell, begin, end), more);
        }
    }

    QString titleOf(const LayoutCell &cell, quint64 begin, quint64 end) const
    {
        QString title = QStringLiteral("%1: %2 leaves begin, %3 free, %4 overlapping")
                            .arg(bytesText(begin, end))
                            .arg(cell.begins)
                            .arg(cell.free)
                            .arg(cell.overlapping);
        if (cell.first != BufferMap::sm_none) {
            title +=
                QStringLiteral("; first '%1'").arg(m_layout.description().leaves()[cell.first].url);
        }
        return title;
    }

    const BufferLayout &m_layout;
    const BufferMap &m_map;
    std::vector<std::size_t> m_types;
    /// Number of a row, with its place in the picture.
    QMap<quint64, int> m_rows;
    bool m_isOverview = false;
    /// Bytes of a cell in an overview.
    quint64 m_unit = 1;
    int m_legendTop = 0;
    int m_top = 0;
};

} // namespace

QByteArray layoutPicture(const BufferLayout &layout)
{
    return Picture(layout).draw();
}
