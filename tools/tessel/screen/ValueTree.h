#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include <vector>

/// The rows of a full screen: the leaves of a description below their nodes, folded, filtered, with some pinned
/// on top, and one row selected. Knows names and which leaves are not valid, and nothing of a terminal.
///
/// A change costs a walk over all leaves, a move of the selection nothing.
class ValueTree
{
public:
    /// A node, or a leaf of the description. They stand in the order of a walk, nodes before what is below.
    struct Entry
    {
        QString name;
        int depth;  ///< 0 at the top
        int leaf;   ///< its index; -1 of a node
        int parent; ///< -1 at the top
        int end;    ///< behind the last entry below it
    };

    struct Row
    {
        int entry;
        bool isPinned; ///< It is the one on top, not that in the tree.

        bool operator==(const Row &other) const
        {
            return entry == other.entry && isPinned == other.isPinned;
        }
    };

    /// Leaves in the order in which they are shown; those below one node stand together.
    explicit ValueTree(const QStringList &urls);

    const Entry &entry(int index) const { return m_entries[static_cast<std::size_t>(index)]; }
    const QString &url(int leaf) const { return m_urls[leaf]; }
    int leafCount() const { return m_urls.size(); }

    /// The pinned ones first, in the order in which they were pinned.
    const QVector<Row> &rows() const { return m_rows; }
    int pinnedCount() const { return m_pinned.size(); }
    /// Leaves that are pinned.
    QVector<int> pinnedLeaves() const;
    /// Leaves that filter and restriction leave in the tree, folded ones included.
    int shownLeafCount() const { return m_shownLeaves; }
    bool isPinned(int entry) const { return m_pinned.contains(entry); }
    bool isFolded(int entry) const;
    /// Whether only a part of the leaves is asked for; all nodes above these are unfolded then.
    bool isRestricted() const { return !m_filter.isEmpty() || m_isInvalidOnly; }

    /// Index of the selected row; -1 if there is none.
    int selected() const { return m_selected; }
    /// The leaf that is selected; -1 if it is a node, or nothing.
    int selectedLeaf() const;
    /// So many rows down, or up; stops at the ends.
    void moveBy(int rows);
    void moveToFirst();
    void moveToLast();

    /// Folds the selected node; of a leaf, or of a folded node, selects the node above.
    void fold();
    void unfold();
    /// Folds or unfolds the selected node.
    void toggle();
    /// Pins the selected leaf, or takes it down again.
    void togglePin();

    const QString &filter() const { return m_filter; }
    /// Only leaves whose URL holds the text, in small or capital letters, or that a pattern with `*` leads to.
    void setFilter(const QString &filter);

    bool isInvalidOnly() const { return m_isInvalidOnly; }
    /// Only leaves that setInvalid() has named last.
    void setInvalidOnly(bool isInvalidOnly);
    /// One for each leaf: whether its value is not valid now.
    void setInvalid(const std::vector<bool> &invalid);

private:
    void addLeaf(int leaf, QVector<int> &open);
    bool isWanted(const Entry &entry) const;
    std::vector<bool> keptEntries() const;
    void arrange();
    void select(const Row &row);

    QStringList m_urls;
    std::vector<Entry> m_entries;
    std::vector<bool> m_folded; ///< by entry
    QVector<int> m_pinned;      ///< entries
    QString m_filter;
    std::vector<bool> m_matches; ///< by leaf, of the filter
    bool m_isInvalidOnly = false;
    std::vector<bool> m_invalid; ///< by leaf
    QVector<Row> m_rows;
    int m_shownLeaves = 0;
    int m_selected = -1;
};
