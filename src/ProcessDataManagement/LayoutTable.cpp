#include "ProcessDataManagement/LayoutTable_p.h"

#include <algorithm>
#include <iterator>

LayoutTable::LayoutTable(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    const auto add = [this](const LayoutLeaf &leaf) { this->add(leaf); };
    if (!takeLayoutLeavesOf(root, add)) {
        m_runs.clear();
        m_kinds.clear();
        const std::vector<LayoutLeaf> leaves = layoutLeavesOf(root);
        std::for_each(leaves.cbegin(), leaves.cend(), add);
    }
    finishRun();
}

void LayoutTable::add(const LayoutLeaf &leaf)
{
    const int prefixSize = leaf.url.lastIndexOf('/') + 1;
    const bool isBeside = !m_runs.empty() && m_runs.back().prefix.size() == prefixSize
                          && leaf.url.startsWith(m_runs.back().prefix);
    if (!isBeside) {
        finishRun();
        m_runs.push_back({QByteArray(leaf.url.constData(), prefixSize), {}, {}});
    }
    Run &run = m_runs.back();
    run.names.append(leaf.url.constData() + prefixSize, leaf.url.size() - prefixSize);
    run.rows.push_back({static_cast<quint32>(run.names.size()), leaf.offset, kindOf(leaf)});
}

/// No leaf comes to the last run any more.
void LayoutTable::finishRun()
{
    if (m_runs.empty()) {
        return;
    }
    Run &run = m_runs.back();
    run.rows.shrink_to_fit();
    run.names.squeeze();
    // The files of a device mostly have the same leaves.
    if (m_runs.size() > 1 && m_runs[m_runs.size() - 2].names == run.names) {
        run.names = m_runs[m_runs.size() - 2].names;
    }
}

quint32 LayoutTable::kindOf(const LayoutLeaf &leaf)
{
    // Where two kinds come to the same place in turn they are there several times, which does no harm.
    const quint32 mix = leaf.sizeValue + 5 * leaf.relativeOffsetMetadata + 11 * leaf.bitmask
                        + static_cast<quint32>(leaf.type.isEmpty() ? 0 : 17 * leaf.type.back());
    quint32 &last = m_lastKinds[mix % m_lastKinds.size()];
    const auto isThis = [&leaf](const Kind &kind) {
        return kind.sizeValue == leaf.sizeValue && kind.bitmask == leaf.bitmask
               && kind.relativeOffsetMetadata == leaf.relativeOffsetMetadata
               && kind.sizeMetadata == leaf.sizeMetadata && kind.type == leaf.type;
    };
    if (last >= m_kinds.size() || !isThis(m_kinds[last])) {
        last = static_cast<quint32>(m_kinds.size());
        m_kinds.push_back({leaf.type, leaf.sizeValue, leaf.relativeOffsetMetadata,
                           leaf.sizeMetadata, leaf.bitmask});
    }
    return last;
}

/// Borrowed from the run.
QByteArray LayoutTable::nameIn(const Run &run, std::size_t row)
{
    const quint32 begin = row == 0 ? 0 : run.rows[row - 1].nameEnd;
    return QByteArray::fromRawData(run.names.constData() + begin,
                                   static_cast<int>(run.rows[row].nameEnd - begin));
}

/// All but the URL.
void LayoutTable::read(const Run &run, std::size_t row, LayoutLeaf &leaf) const
{
    const Kind &kind = m_kinds[run.rows[row].kind];
    leaf.type = kind.type;
    leaf.offset = run.rows[row].offset;
    leaf.sizeValue = kind.sizeValue;
    leaf.relativeOffsetMetadata = kind.relativeOffsetMetadata;
    leaf.sizeMetadata = kind.sizeMetadata;
    leaf.bitmask = kind.bitmask;
}

void LayoutTable::giveAll(const std::function<void(const LayoutLeaf &leaf)> &take) const
{
    LayoutLeaf leaf;
    // What was reserved once stays, however short the text becomes in between.
    constexpr int usualUrl = 256;
    leaf.url.reserve(usualUrl);
    for (const Run &run : m_runs) {
        leaf.url.truncate(0);
        leaf.url += run.prefix;
        for (std::size_t row = 0; row < run.rows.size(); ++row) {
            leaf.url.truncate(run.prefix.size());
            leaf.url += nameIn(run, row);
            read(run, row, leaf);
            take(leaf);
        }
    }
}

std::optional<LayoutLeaf> LayoutTable::find(const QByteArray &url) const
{
    // All leaves with one URL are in one run, none of which is empty.
    const auto next = std::upper_bound(m_runs.cbegin(), m_runs.cend(), url,
                                       [](const QByteArray &wanted, const Run &run) {
                                           return wanted < run.prefix + nameIn(run, 0);
                                       });
    if (next == m_runs.cbegin() || !url.startsWith(std::prev(next)->prefix)) {
        return std::nullopt;
    }
    const Run &run = *std::prev(next);
    const QByteArray name = url.mid(run.prefix.size());
    const auto found = std::lower_bound(
        run.rows.cbegin(), run.rows.cend(), name, [&run](const Row &row, const QByteArray &wanted) {
            return nameIn(run, static_cast<std::size_t>(&row - run.rows.data())) < wanted;
        });
    const auto row = static_cast<std::size_t>(found - run.rows.cbegin());
    if (row == run.rows.size() || nameIn(run, row) != name) {
        return std::nullopt;
    }
    LayoutLeaf leaf;
    leaf.url = url;
    read(run, row, leaf);
    return leaf;
}
