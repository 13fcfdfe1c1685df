#pragma once

#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <QByteArray>

#include <array>
#include <functional>
#include <optional>
#include <vector>

/// The process values of a description in the order of layoutLeavesOf(), in little room.
///
/// A leaf takes 12 bytes and its name, which stands once for nodes beside each other with the same leaves;
/// sizes, type and mask stand once for most leaves that have them in common. Keeps nothing of the tree.
class LayoutTable
{
public:
    /// Of the tree below @p root, which may be null.
    explicit LayoutTable(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root);

    /// Gives each of them to @p take, in order. The URL holds until @p take returns.
    void giveAll(const std::function<void(const LayoutLeaf &leaf)> &take) const;
    /// The first one at @p url, in UTF-8.
    std::optional<LayoutLeaf> find(const QByteArray &url) const;

private:
    /// What many leaves have in common.
    struct Kind
    {
        QByteArray type;
        quint32 sizeValue;
        quint32 relativeOffsetMetadata;
        quint32 sizeMetadata;
        quint32 bitmask;
    };
    struct Row
    {
        quint32 nameEnd; ///< in the names of the node, where the next one begins
        quint32 offset;
        quint32 kind;
    };
    /// Leaves behind each other whose URLs are the same up to the last slash.
    struct Run
    {
        QByteArray prefix;
        QByteArray names;
        std::vector<Row> rows;
    };

    void add(const LayoutLeaf &leaf);
    void finishRun();
    quint32 kindOf(const LayoutLeaf &leaf);
    static QByteArray nameIn(const Run &run, std::size_t row);
    void read(const Run &run, std::size_t row, LayoutLeaf &leaf) const;

    std::vector<Run> m_runs;
    std::vector<Kind> m_kinds;
    /// Where in the kinds one of the same sizes was put last.
    std::array<quint32, 64> m_lastKinds{};
};
