#include "TesselModels/ConfigurationModel.h"

#include "TesselModels/ConfigurationValue_p.h"
#include "TesselModels/ConfigurationWorker_p.h"
#include "TesselModels/HelperThread_p.h"
#include "TesselModels/LeafCells_p.h"
#include "TesselModels/UrlTree_p.h"

#include <QCoreApplication>

using namespace TesselModels;

namespace {

/// Of the last write of a value.
struct WriteAnswer
{
    int status = -1; ///< -1: there was none
    QString text;
};

QStringList urlsOf(const std::vector<ConfigurationLeaf> &leaves)
{
    QStringList urls;
    for (const auto &leaf : leaves) {
        urls.append(leaf.url);
    }
    return urls;
}

QVariant described(const ConfigurationLeaf &leaf, int role)
{
    switch (role) {
    case ValueRole: return leaf.value;
    case TextRole: return configurationText(leaf.value, leaf.selection);
    case UnitRole: return leaf.unit;
    case TypeRole: return leaf.type;
    case MinimumRole: return leaf.minimum;
    case MaximumRole: return leaf.maximum;
    case ReadOnlyRole: return leaf.isReadOnly;
    case DisplayPositionRole: return leaf.displayPosition;
    case LabelRole: return leaf.label;
    case SelectionRole: return leaf.selection;
    case PatternRole: return leaf.pattern;
    default: return {};
    }
}

/// The role that a column displays.
int roleOfColumn(int column)
{
    switch (column) {
    case ConfigurationNameColumn: return NameRole;
    case ConfigurationValueColumn: return TextRole;
    case ConfigurationUnitColumn: return UnitRole;
    case ConfigurationTypeColumn: return TypeRole;
    default: return StatusTextRole;
    }
}

} // namespace

class ConfigurationModel::Private
{
public:
    explicit Private(ConfigurationModel *model) : worker(new ConfigurationWorker), thread(worker)
    {
        connect(worker, &ConfigurationWorker::loaded, model, &ConfigurationModel::showConfiguration,
                Qt::QueuedConnection);
        connect(worker, &ConfigurationWorker::written, model, &ConfigurationModel::showWrite,
                Qt::QueuedConnection);
        connect(worker, &ConfigurationWorker::saved, model, &ConfigurationModel::showSave,
                Qt::QueuedConnection);
    }
    Private(const Private &) = delete;
    Private &operator=(const Private &) = delete;

    int nodeOf(const QModelIndex &index) const
    {
        return index.isValid() ? static_cast<int>(index.internalId()) : 0;
    }

    QString path;
    bool isModified = false;
    bool isLoaded = false;
    QString errorText;
    std::vector<ConfigurationLeaf> leaves;
    std::vector<WriteAnswer> answers; ///< a leaf each
    UrlTree tree;
    int awaited = 0; ///< readings that were asked for and did not come yet
    int savings = 0; ///< that were asked for and are not over yet

    ConfigurationWorker *const worker; ///< owned by the thread, and only to be called there
    HelperThread thread;
};

ConfigurationModel::ConfigurationModel(QObject *parent)
    : QAbstractItemModel(parent)
    , m_private(std::make_unique<Private>(this))
{
}

ConfigurationModel::~ConfigurationModel() = default;

QString ConfigurationModel::getPath() const
{
    return m_private->path;
}

void ConfigurationModel::setPath(const QString &path)
{
    if (path != m_private->path) {
        m_private->path = path;
        reload();
        Q_EMIT pathChanged();
    }
}

bool ConfigurationModel::isLoaded() const
{
    return m_private->isLoaded;
}

bool ConfigurationModel::isModified() const
{
    return m_private->isModified;
}

bool ConfigurationModel::isSaving() const
{
    return m_private->savings > 0;
}

QString ConfigurationModel::getErrorText() const
{
    return m_private->errorText;
}

void ConfigurationModel::reload()
{
    ++m_private->awaited;
    m_private->thread.post(
        [worker = m_private->worker, path = m_private->path] { worker->load(path); });
}

void ConfigurationModel::write(const QString &url, const QVariant &value)
{
    m_private->thread.post([worker = m_private->worker, url, value] { worker->write(url, value); });
}

void ConfigurationModel::save(const QString &moduleName, const QString &objectName)
{
    if (++m_private->savings == 1) {
        Q_EMIT savingChanged();
    }
    m_private->thread.post([worker = m_private->worker, moduleName, objectName] {
        worker->save(moduleName, objectName);
    });
}

void ConfigurationModel::showConfiguration(const std::shared_ptr<const ShownConfiguration> &shown)
{
    // Of several only the last is what was asked for.
    if (--m_private->awaited > 0) {
        return;
    }
    const bool wasLoaded = m_private->isLoaded;
    const QString formerError = m_private->errorText;
    beginResetModel();
    m_private->isLoaded = shown->isLoaded;
    m_private->errorText = shown->errorText;
    m_private->leaves = shown->leaves;
    m_private->answers.assign(shown->leaves.size(), {});
    m_private->tree = UrlTree(urlsOf(shown->leaves));
    endResetModel();
    setModified(false);
    if (wasLoaded != m_private->isLoaded) {
        Q_EMIT loadedChanged();
    }
    if (formerError != m_private->errorText) {
        Q_EMIT errorTextChanged();
    }
}

void ConfigurationModel::showWrite(const QString &url, int status, const QString &text,
                                   const QString &leafUrl, const QVariant &value)
{
    const int node = m_private->tree.find(leafUrl);
    const int leaf = node > 0 ? m_private->tree.node(node).leaf : -1;
    // It may belong to what was read before.
    if (leaf >= 0) {
        const auto place = static_cast<std::size_t>(leaf);
        m_private->leaves[place].value = value;
        m_private->answers[place] = {status, text};
        Q_EMIT dataChanged(
            indexOfNode(node, ConfigurationValueColumn),
            indexOfNode(node, ConfigurationStatusColumn),
            {Qt::DisplayRole, Qt::EditRole, ValueRole, TextRole, StatusRole, StatusTextRole});
    }
    if (status == ConfigurationChanged) {
        setModified(true);
    }
    Q_EMIT written(url, status, text);
}

void ConfigurationModel::showSave(bool isSaved, const QString &text)
{
    if (--m_private->savings == 0) {
        Q_EMIT savingChanged();
    }
    if (isSaved) {
        setModified(false);
    }
    if (text != m_private->errorText) {
        m_private->errorText = text;
        Q_EMIT errorTextChanged();
    }
    Q_EMIT saved(isSaved, text);
}

void ConfigurationModel::setModified(bool isModified)
{
    if (isModified != m_private->isModified) {
        m_private->isModified = isModified;
        Q_EMIT modifiedChanged();
    }
}

QModelIndex ConfigurationModel::indexOfNode(int node, int column) const
{
    return node > 0
               ? createIndex(m_private->tree.node(node).row, column, static_cast<quintptr>(node))
               : QModelIndex();
}

QModelIndex ConfigurationModel::indexOf(const QString &url) const
{
    const int node = m_private->tree.find(url);
    return node > 0 ? indexOfNode(node, ConfigurationNameColumn) : QModelIndex();
}

QModelIndex ConfigurationModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent)) {
        return {};
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(parent));
    return createIndex(row, column,
                       static_cast<quintptr>(node.children[static_cast<std::size_t>(row)]));
}

QModelIndex ConfigurationModel::parent(const QModelIndex &index) const
{
    return index.isValid() ? indexOfNode(m_private->tree.node(m_private->nodeOf(index)).parent,
                                         ConfigurationNameColumn)
                           : QModelIndex();
}

int ConfigurationModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > ConfigurationNameColumn) {
        return 0;
    }
    return static_cast<int>(m_private->tree.node(m_private->nodeOf(parent)).children.size());
}

int ConfigurationModel::columnCount(const QModelIndex &parent) const
{
    return parent.column() > ConfigurationNameColumn ? 0 : ConfigurationColumnCount;
}

QVariant ConfigurationModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(index));
    if (role == Qt::DisplayRole
        || (role == Qt::EditRole && index.column() != ConfigurationValueColumn)) {
        return data(index, roleOfColumn(index.column()));
    }
    switch (role) {
    case UrlRole: return node.url;
    case Qt::ToolTipRole: return LeafCells::tip(node.url);
    case NameRole: return node.url.section(QLatin1Char('/'), -1);
    default: break;
    }
    if (node.leaf < 0) {
        return {};
    }
    const auto place = static_cast<std::size_t>(node.leaf);
    const WriteAnswer &answer = m_private->answers[place];
    switch (role) {
    case Qt::EditRole: return m_private->leaves[place].value;
    case StatusRole: return answer.status >= 0 ? QVariant(answer.status) : QVariant();
    case StatusTextRole: return answer.text;
    default: return described(m_private->leaves[place], role);
    }
}

QVariant ConfigurationModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    static const char *const titles[] = {
        QT_TRANSLATE_NOOP("TesselModels", "Name"), QT_TRANSLATE_NOOP("TesselModels", "Value"),
        QT_TRANSLATE_NOOP("TesselModels", "Unit"), QT_TRANSLATE_NOOP("TesselModels", "Type"),
        QT_TRANSLATE_NOOP("TesselModels", "Status")};
    return orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0
                   && section < ConfigurationColumnCount
               ? QCoreApplication::translate("TesselModels", titles[section])
               : QVariant();
}

Qt::ItemFlags ConfigurationModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractItemModel::flags(index);
    if (!index.isValid()) {
        return flags;
    }
    const int leaf = m_private->tree.node(m_private->nodeOf(index)).leaf;
    flags.setFlag(Qt::ItemNeverHasChildren, leaf >= 0);
    if (leaf >= 0 && index.column() == ConfigurationValueColumn) {
        const ConfigurationLeaf &described = m_private->leaves[static_cast<std::size_t>(leaf)];
        flags.setFlag(Qt::ItemIsEditable,
                      !described.isReadOnly && described.type != QLatin1String("array"));
    }
    return flags;
}

bool ConfigurationModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const bool isValue = role == ValueRole
                         || (role == Qt::EditRole && index.column() == ConfigurationValueColumn);
    if (!checkIndex(index, CheckIndexOption::IndexIsValid) || !isValue) {
        return false;
    }
    const UrlNode &node = m_private->tree.node(m_private->nodeOf(index));
    if (node.leaf < 0) {
        return false;
    }
    write(node.url, value);
    return true;
}

QHash<int, QByteArray> ConfigurationModel::roleNames() const
{
    return {{Qt::DisplayRole, "display"}, {UrlRole, "url"},
            {NameRole, "name"},           {ValueRole, "value"},
            {TextRole, "text"},           {UnitRole, "unit"},
            {TypeRole, "type"},           {MinimumRole, "minimum"},
            {MaximumRole, "maximum"},     {ReadOnlyRole, "readOnly"},
            {LabelRole, "label"},         {DisplayPositionRole, "displayPosition"},
            {SelectionRole, "selection"}, {PatternRole, "pattern"},
            {StatusRole, "status"},       {StatusTextRole, "statusText"}};
}
