#pragma once

#include "descriptions/DescriptionSource.h"
#include "values/BufferMap.h"
#include "values/CacheLines.h"

#include <QStringList>

/// What `tessel layout` shows of a description: its buffer, and which leaves were asked for.
class BufferLayout
{
public:
    using Piece = BufferMap::Piece;

    BufferLayout(const DescriptionSource &description, const QStringList &urls);

    const DescriptionSource &description() const { return m_description; }
    const BufferMap &map() const { return m_map; }
    const CacheLines &lines() const { return m_lines; }

    /// Of a piece that is no hole.
    const QString &urlOf(const Piece &piece) const
    {
        return m_description.leaves()[piece.leaf].url;
    }
    const LeafSlot &slotOf(const Piece &piece) const { return m_slots[piece.leaf]; }
    CacheLines::Crossing crossingOf(const Piece &piece) const;
    /// Of all slots.
    int crossingCount() const;
    /// What is to be said of a piece beside its place: crossings, shared bytes, and whether it lies outside.
    QStringList notesOf(const Piece &piece) const;
    /// "value of 'boiler/temperature'".
    QString nameOf(const Piece &piece) const;

    /// Whether a piece is to be shown: it belongs to a leaf that was asked for, or nobody asked for any.
    bool isShown(const Piece &piece) const;
    bool isWhole() const { return m_isWhole; }

private:
    const DescriptionSource &m_description;
    bool m_isWhole;
    QVector<LeafSlot> m_slots;
    /// By the places of the leaves.
    std::vector<bool> m_isAsked;
    BufferMap m_map;
    CacheLines m_lines;
};

/// "value", "state" or "hole".
QString whatText(BufferMap::What what);
/// "double, 20 bytes".
QString bufferText(const BufferLayout &layout);

/// The layout as an SVG document. Of a large one, an overview whose cells stand for several bytes each.
QByteArray layoutPicture(const BufferLayout &layout);
