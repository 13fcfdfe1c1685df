#include "TesselModels/ProcessDataModel.h"

#include "TesselModels/ChangedRows_p.h"
#include "TesselModels/LeafCells_p.h"
#include "TesselModels/ProcessDataSource.h"
#include "TesselModels/UrlTree_p.h"

#include <QPointer>

#include <algorithm>
#include <utility>

using namespace TesselModels;

class ProcessDataModel::Private
{
public:
    int nodeOf(const QModelIndex &index) const
    {
        return index.isValid() ? static_cast<int>(index.internalId()) : 0;
    }

    QPointer<ProcessDataSource> source;
    std::shared_ptr<const ShownSet> set = ShownSetAccess::of(nullptr);
    UrlTree tree;
};

ProcessDataModel::ProcessDataModel(QObject *parent)
    : QAbstractItemModel(parent)
    , m_private(std::make_unique<Private>())
{
}

ProcessDataModel::~ProcessDataModel() = default;

ProcessDataSource *ProcessDataModel::getSource() const
{
    return m_private->source;
}

void ProcessDataModel::setSource(ProcessDataSource *source)
{
    if (source == m_private->source) {
        return;
    }
    if (m_private->source) {
        m_private->source->disconnect(this);
    }
    m_private->source = source;
    if (source != nullptr) {
        connect(source, &ProcessDataSource::setShown, this,
                [this] { showSet(ShownSetAccess::of(m_private->source)); });
        connect(source, &QObject::destroyed, this, [this] {
            m_private->source.clear();
            rebuild();
            Q_EMIT sourceChanged();
        });
    }
    rebuild();
    Q_EMIT sourceChanged();
}

void ProcessDataModel::showSet(const std::shared_ptr<const ShownSet> &set)
{
    if (set->description == m_private->set->description) {
        const auto former = std::exchange(m_private->set, set);
        tellChanged(set->changesSince(*former));
        return;
    }
    rebuild();
}

void ProcessDataModel::rebuild()
{
    beginResetModel();
    m_private->set = ShownSetAccess::of(m_private->source);
    const auto &description = m_private->set->description;
    m_private->tree = description ? UrlTree(description->urls()) : UrlTree();
    endResetModel();
}

void ProcessDataModel::tellChanged(const ShownChanges &changes)
{
    // Below each node its rows, ascending: leaves stand in the order of the tree, but those of a node may
    // have others further down in between.
    std::vector<std::pair<int, int>> places;
    places.reserve(changes.leaves.size());
    for (const int leaf : changes.leaves) {
        const UrlNode &node = m_private->tree.node(m_private->tree.nodeOfLeaf(leaf));
        // A value without a name would stand where the root does, which is shown nowhere.
        if (node.parent >= 0) {
            places.emplace_back(node.parent, node.row);
        }
    }
    std::sort(places.begin(), places.end());
    const int lastColumn = changes.isStateChanged ? StateColumn : ValueColumn;
    std::vector<int> rows;
    for (auto place = places.cbegin(); place != places.cend();) {
        const int parent = place->first;
        rows.clear();
        for (; place != places.cend() && place->first == parent; ++place) {
            rows.push_back(place->second);
        }
        const QModelIndex parentIndex = indexOfNode(parent, NameColumn);
        tellChangedRows(rows, rowCount(parentIndex), [&](int first, int last) {
            Q_EMIT dataChanged(index(first, ValueColumn, parentIndex),
                               index(last, lastColumn, parentIndex), LeafCells::changingRoles());
        });
    }
}

QModelIndex ProcessDataModel::indexOfNode(int node, int column) const
{
    return node > 0
               ? createIndex(m_private->tree.node(node).row, column, static_cast<quintptr>(node))
               : QModelIndex();
}

QModelIndex ProcessDataModel::indexOf(const QString &url) const
{
    const int node = m_private->tree.find(url);
    return node > 0 ? indexOfNode(node, NameColumn) : QModelIndex();
}

QModelIndex ProcessDataModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent)) {
        return {};
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(parent));
    return createIndex(row, column,
                       static_cast<quintptr>(node.children[static_cast<std::size_t>(row)]));
}

QModelIndex ProcessDataModel::parent(const QModelIndex &index) const
{
    return index.isValid()
               ? indexOfNode(m_private->tree.node(m_private->nodeOf(index)).parent, NameColumn)
               : QModelIndex();
}

int ProcessDataModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > NameColumn) {
        return 0;
    }
    return static_cast<int>(m_private->tree.node(m_private->nodeOf(parent)).children.size());
}

int ProcessDataModel::columnCount(const QModelIndex &parent) const
{
    return parent.column() > NameColumn ? 0 : ColumnCount;
}

QVariant ProcessDataModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(index));
    if (node.leaf < 0) {
        const bool isNamed = role == NameRole || role == UrlRole || role == Qt::ToolTipRole
                             || (role == Qt::DisplayRole && index.column() == NameColumn);
        return isNamed ? LeafCells::data(*m_private->set, -1, node.url, NameColumn, role)
                       : QVariant();
    }
    return LeafCells::data(*m_private->set, node.leaf, node.url, index.column(), role);
}

QVariant ProcessDataModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return orientation == Qt::Horizontal ? LeafCells::header(section, role) : QVariant();
}

Qt::ItemFlags ProcessDataModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractItemModel::flags(index);
    if (!index.isValid()) {
        return flags;
    }
    const int leaf = m_private->tree.node(m_private->nodeOf(index)).leaf;
    flags.setFlag(Qt::ItemNeverHasChildren, leaf >= 0);
    flags.setFlag(Qt::ItemIsEditable,
                  index.column() == ValueColumn && LeafCells::isWritable(*m_private->set, leaf));
    return flags;
}

bool ProcessDataModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const bool isValue = role == ValueRole
                         || (role == Qt::EditRole && index.column() == ValueColumn);
    if (!checkIndex(index, CheckIndexOption::IndexIsValid) || !isValue || !m_private->source) {
        return false;
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(index));
    if (node.leaf < 0) {
        return false;
    }
    m_private->source->write(node.url, value);
    return true;
}

QHash<int, QByteArray> ProcessDataModel::roleNames() const
{
    return LeafCells::roleNames();
}
