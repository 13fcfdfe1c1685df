#include "TesselModels/ProcessDataListModel.h"

#include "TesselModels/ChangedRows_p.h"
#include "TesselModels/LeafCells_p.h"
#include "TesselModels/ProcessDataSource.h"
#include "TesselModels/UrlTree_p.h"

#include <QPointer>

#include <algorithm>
#include <utility>

class ProcessDataListModel::Private
{
public:
    /// Which leaf of the description a row shows, and the other way round.
    void placeRows();
    std::vector<int> rowsOf(const std::vector<int> &leaves) const;

    QPointer<ProcessDataSource> source;
    QStringList urls;
    QString rootUrl;
    std::shared_ptr<const ShownSet> set = ShownSetAccess::of(nullptr);
    QStringList rowUrls;
    std::vector<int> leafOfRow;                  ///< -1: the description has none
    std::vector<std::pair<int, int>> rowsOfLeaf; ///< leaf and row, ascending
};

void ProcessDataListModel::Private::placeRows()
{
    const SourceDescription *const description = set->description.get();
    rowUrls = urls;
    if (urls.isEmpty() && description != nullptr) {
        const QString root = plainUrl(rootUrl);
        const QString prefix = root.isEmpty() ? QString() : root + QLatin1Char('/');
        for (const auto &leaf : description->leaves) {
            if (leaf.url.startsWith(prefix)) {
                rowUrls.append(leaf.url);
            }
        }
    }
    leafOfRow.clear();
    rowsOfLeaf.clear();
    for (const auto &url : std::as_const(rowUrls)) {
        const int leaf = description != nullptr ? description->find(url) : -1;
        if (leaf >= 0) {
            rowsOfLeaf.emplace_back(leaf, static_cast<int>(leafOfRow.size()));
        }
        leafOfRow.push_back(leaf);
    }
    std::sort(rowsOfLeaf.begin(), rowsOfLeaf.end());
}

std::vector<int> ProcessDataListModel::Private::rowsOf(const std::vector<int> &leaves) const
{
    std::vector<int> rows;
    auto place = rowsOfLeaf.cbegin();
    for (const int leaf : leaves) {
        while (place != rowsOfLeaf.cend() && place->first < leaf) {
            ++place;
        }
        for (; place != rowsOfLeaf.cend() && place->first == leaf; ++place) {
            rows.push_back(place->second);
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

ProcessDataListModel::ProcessDataListModel(QObject *parent)
    : QAbstractTableModel(parent)
    , m_private(std::make_unique<Private>())
{
}

ProcessDataListModel::~ProcessDataListModel() = default;

ProcessDataSource *ProcessDataListModel::getSource() const
{
    return m_private->source;
}

void ProcessDataListModel::setSource(ProcessDataSource *source)
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

QStringList ProcessDataListModel::getUrls() const
{
    return m_private->urls;
}

void ProcessDataListModel::setUrls(const QStringList &urls)
{
    if (urls != m_private->urls) {
        m_private->urls = urls;
        rebuild();
        Q_EMIT urlsChanged();
    }
}

QString ProcessDataListModel::getRootUrl() const
{
    return m_private->rootUrl;
}

void ProcessDataListModel::setRootUrl(const QString &url)
{
    if (url != m_private->rootUrl) {
        m_private->rootUrl = url;
        rebuild();
        Q_EMIT rootUrlChanged();
    }
}

void ProcessDataListModel::showSet(const std::shared_ptr<const ShownSet> &set)
{
    if (set->description == m_private->set->description) {
        const auto former = std::exchange(m_private->set, set);
        tellChanged(set->changesSince(*former));
        return;
    }
    rebuild();
}

void ProcessDataListModel::rebuild()
{
    const int former = rowCount();
    beginResetModel();
    m_private->set = ShownSetAccess::of(m_private->source);
    m_private->placeRows();
    endResetModel();
    // cppcheck-suppress knownConditionTrueFalse ; placeRows() makes others
    if (rowCount() != former) {
        Q_EMIT countChanged();
    }
}

void ProcessDataListModel::tellChanged(const ShownChanges &changes)
{
    using namespace TesselModels;
    const int lastColumn = changes.isStateChanged ? StateColumn : ValueColumn;
    tellChangedRows(m_private->rowsOf(changes.leaves), rowCount(), [&](int first, int last) {
        Q_EMIT dataChanged(index(first, ValueColumn), index(last, lastColumn),
                           LeafCells::changingRoles());
    });
}

int ProcessDataListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_private->rowUrls.size();
}

int ProcessDataListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : TesselModels::ColumnCount;
}

QVariant ProcessDataListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    return LeafCells::data(*m_private->set,
                           m_private->leafOfRow[static_cast<std::size_t>(index.row())],
                           m_private->rowUrls[index.row()], index.column(), role);
}

QVariant ProcessDataListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return orientation == Qt::Horizontal
               ? LeafCells::header(section, role)
               : QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags ProcessDataListModel::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags usual = QAbstractTableModel::flags(index);
    const bool isEditable = index.isValid() && index.column() == TesselModels::ValueColumn
                            && LeafCells::isWritable(
                                *m_private->set,
                                m_private->leafOfRow[static_cast<std::size_t>(index.row())]);
    return isEditable ? usual | Qt::ItemIsEditable : usual;
}

bool ProcessDataListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const bool isValue = role == TesselModels::ValueRole
                         || (role == Qt::EditRole && index.column() == TesselModels::ValueColumn);
    if (!checkIndex(index, CheckIndexOption::IndexIsValid) || !isValue || !m_private->source) {
        return false;
    }
    m_private->source->write(m_private->rowUrls[index.row()], value);
    return true;
}

QHash<int, QByteArray> ProcessDataListModel::roleNames() const
{
    return LeafCells::roleNames();
}
