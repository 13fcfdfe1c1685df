#include "screen/ValueTree.h"

#include "descriptions/UrlPattern.h"

#include <algorithm>
#include <utility>

namespace {

std::vector<bool> matchesOf(const QStringList &urls, const QString &filter)
{
    std::vector<bool> matches;
    matches.reserve(static_cast<std::size_t>(urls.size()));
    if (filter.contains(QLatin1Char('*'))) {
        const UrlPattern pattern(filter);
        for (const auto &url : urls) {
            matches.push_back(pattern.leadsTo(url));
        }
        return matches;
    }
    for (const auto &url : urls) {
        matches.push_back(url.contains(filter, Qt::CaseInsensitive));
    }
    return matches;
}

std::size_t at(int index)
{
    return static_cast<std::size_t>(index);
}

} // namespace

ValueTree::ValueTree(const QStringList &urls)
    : m_urls(urls)
    , m_matches(at(urls.size()), true)
    , m_invalid(at(urls.size()), false)
{
    QVector<int> open;
    for (int leaf = 0; leaf < urls.size(); ++leaf) {
        addLeaf(leaf, open);
    }
    for (const int entry : std::as_const(open)) {
        m_entries[at(entry)].end = static_cast<int>(m_entries.size());
    }
    m_folded.resize(m_entries.size(), false);
    arrange();
}

/// @p open are the nodes above the leaf before.
void ValueTree::addLeaf(int leaf, QVector<int> &open)
{
    const QStringList pieces = url(leaf).split(QLatin1Char('/'));
    int depth = 0;
    while (depth < open.size() && depth + 1 < pieces.size()
           && m_entries[at(open[depth])].name == pieces[depth]) {
        ++depth;
    }
    const auto next = [this] { return static_cast<int>(m_entries.size()); };
    for (int i = depth; i < open.size(); ++i) {
        m_entries[at(open[i])].end = next();
    }
    open.resize(depth);
    const auto parent = [&open] { return open.isEmpty() ? -1 : open.last(); };
    for (; depth + 1 < pieces.size(); ++depth) {
        m_entries.push_back({pieces[depth], depth, -1, parent(), 0});
        open.append(next() - 1);
    }
    m_entries.push_back({pieces.last(), depth, leaf, parent(), next() + 1});
}

QVector<int> ValueTree::pinnedLeaves() const
{
    QVector<int> leaves;
    for (const int pinned : m_pinned) {
        leaves.append(entry(pinned).leaf);
    }
    return leaves;
}

bool ValueTree::isFolded(int entry) const
{
    return m_folded[at(entry)] && !isRestricted();
}

int ValueTree::selectedLeaf() const
{
    return m_selected < 0 ? -1 : entry(m_rows[m_selected].entry).leaf;
}

void ValueTree::moveBy(int rows)
{
    if (!m_rows.isEmpty()) {
        m_selected = std::clamp(m_selected + rows, 0, m_rows.size() - 1);
    }
}

void ValueTree::moveToFirst()
{
    moveBy(-m_rows.size());
}

void ValueTree::moveToLast()
{
    moveBy(m_rows.size());
}

void ValueTree::fold()
{
    if (m_selected < 0) {
        return;
    }
    const int selected = m_rows[m_selected].entry;
    if (entry(selected).leaf < 0 && !isFolded(selected) && !isRestricted()) {
        m_folded[at(selected)] = true;
        arrange();
    } else if (entry(selected).parent >= 0) {
        select({entry(selected).parent, false});
    }
}

void ValueTree::unfold()
{
    if (m_selected >= 0) {
        m_folded[at(m_rows[m_selected].entry)] = false;
        arrange();
    }
}

void ValueTree::toggle()
{
    if (m_selected < 0 || selectedLeaf() >= 0) {
        return;
    }
    if (isFolded(m_rows[m_selected].entry)) {
        unfold();
    } else {
        fold();
    }
}

void ValueTree::togglePin()
{
    if (selectedLeaf() < 0) {
        return;
    }
    const int selected = m_rows[m_selected].entry;
    if (!m_pinned.removeOne(selected)) {
        m_pinned.append(selected);
    }
    arrange();
}

void ValueTree::setFilter(const QString &filter)
{
    if (filter != m_filter) {
        m_filter = filter;
        m_matches = matchesOf(m_urls, filter);
        arrange();
    }
}

void ValueTree::setInvalidOnly(bool isInvalidOnly)
{
    if (isInvalidOnly != m_isInvalidOnly) {
        m_isInvalidOnly = isInvalidOnly;
        arrange();
    }
}

void ValueTree::setInvalid(const std::vector<bool> &invalid)
{
    if (invalid != m_invalid) {
        m_invalid = invalid;
        if (m_isInvalidOnly) {
            arrange();
        }
    }
}

bool ValueTree::isWanted(const Entry &entry) const
{
    return entry.leaf >= 0 && m_matches[at(entry.leaf)]
           && (!m_isInvalidOnly || m_invalid[at(entry.leaf)]);
}

/// The wanted leaves and the nodes above them.
std::vector<bool> ValueTree::keptEntries() const
{
    std::vector<bool> kept(m_entries.size(), false);
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        if (!isWanted(m_entries[i])) {
            continue;
        }
        for (auto above = static_cast<int>(i); above >= 0 && !kept[at(above)];
             above = entry(above).parent) {
            kept[at(above)] = true;
        }
    }
    return kept;
}

void ValueTree::arrange()
{
    const Row former = m_selected < 0 ? Row{-1, false} : m_rows[m_selected];
    const std::vector<bool> kept = keptEntries();
    m_rows.clear();
    for (const int pinned : std::as_const(m_pinned)) {
        m_rows.append({pinned, true});
    }
    m_shownLeaves = 0;
    int shown = 0; // entries before it stand in no folded node
    for (int i = 0; i < static_cast<int>(m_entries.size()); ++i) {
        if (!kept[at(i)]) {
            continue;
        }
        m_shownLeaves += entry(i).leaf >= 0 ? 1 : 0;
        if (i < shown) {
            continue;
        }
        m_rows.append({i, false});
        if (isFolded(i)) {
            shown = entry(i).end;
        }
    }
    select(former);
}

/// The row, or where it is not there any more the one that stands in its place now.
void ValueTree::select(const Row &row)
{
    int found = m_rows.indexOf(row);
    if (found < 0 && row.isPinned) {
        found = m_rows.indexOf({row.entry, false});
    }
    if (found < 0 && row.entry >= 0) {
        // A leaf that has gone leaves the selection to what comes behind it.
        const auto behind = std::find_if(m_rows.cbegin(), m_rows.cend(), [&row](const Row &other) {
            return !other.isPinned && other.entry > row.entry;
        });
        found = static_cast<int>(behind - m_rows.cbegin());
    }
    m_selected = std::min(std::max(found, 0), m_rows.size() - 1);
}
