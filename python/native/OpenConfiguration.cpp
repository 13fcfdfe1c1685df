// Opening a configuration, its values and its tables.

#include "native/OpenConfiguration.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/NearestWord.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "native/DescriptionTree.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "trees/ChildrenInOrder.h"

#include <QDir>
#include <QJsonObject>

#include <algorithm>
#include <tuple>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

[[noreturn]] void refuse(Failure::Kind kind, const QString &place, const QString &reason)
{
    throw Failure{kind, QStringLiteral("%1: %2").arg(place, reason)};
}

QString joined(const QString &url, const QString &name)
{
    return url.isEmpty() ? name : url + QLatin1Char('/') + name;
}

/// The name under which the library holds a file or folder in the tree of its directory.
QString treeName(const QFileInfo &entry)
{
    return entry.isDir() ? entry.fileName() : entry.fileName().section(QLatin1Char('.'), 0, 0);
}

bool isConfiguration(const QFileInfo &entry)
{
    return entry.isFile()
           && entry.fileName().endsWith(QLatin1Char('.')
                                        + PropertyManagerConst::getConfigFileExtension());
}

/// A node that holds the tree of one file as a directory would.
Base::BaseClassSharedPointer directoryOf(const QString &name,
                                         const Base::BaseClassSharedPointer &root)
{
    const auto directory = QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(
        QJsonObject{{Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode()}},
        nullptr);
    directory->addElement(name, root);
    return directory;
}

void collectUrls(const Base::BaseClassSharedPointer &node, const QString &url, QStringList &urls)
{
    if (qSharedPointerDynamicCast<ConfigurationDataValue>(node)) {
        urls.append(url);
        return;
    }
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        if (children[key]) {
            collectUrls(children[key], joined(url, key), urls);
        }
    }
}

} // namespace

OpenConfiguration::OpenConfiguration(const QString &path) : m_path(path)
{
    DescriptionTree::requireReadable(path);
    if (QFileInfo(path).isDir()) {
        openDirectory();
    } else {
        openFile();
    }
    collectUrls(m_root, {}, m_urls);
    // The root of a single file that is a leaf has no URL.
    if (m_urls.isEmpty() || m_urls.constFirst().isEmpty()) {
        refuse(Failure::Kind::File, path, QStringLiteral("holds no configuration value"));
    }
}

void OpenConfiguration::openFile()
{
    const QFileInfo entry(m_path);
    if (!isConfiguration(entry)) {
        refuse(Failure::Kind::File, m_path,
               QStringLiteral("no configuration; its name must end in .%1")
                   .arg(PropertyManagerConst::getConfigFileExtension()));
    }
    m_root = ConfigurationAndProcessDataParser().parseFromFile(m_path);
    if (!m_root) {
        refuse(Failure::Kind::File, m_path,
               LibraryReasons::behind(QStringLiteral("cannot be parsed")));
    }
    m_objectName = QFileInfo(entry.absolutePath()).fileName();
    m_files.append({{}, entry, treeName(entry), directoryOf(treeName(entry), m_root), m_root});
}

void OpenConfiguration::openDirectory()
{
    // The name is that of the directory also for "." and for a path with a slash at its end.
    m_objectName = QFileInfo(QDir::cleanPath(QFileInfo(m_path).absoluteFilePath())).fileName();
    if (!Access::parseConfigDir(m_root, QFileInfo(m_path)) || !m_root) {
        refuse(Failure::Kind::File, m_path,
               LibraryReasons::behind(QStringLiteral("cannot be parsed")));
    }
    QStringList entered;
    listFiles(QFileInfo(m_path), {}, entered);
    if (m_files.isEmpty()) {
        refuse(Failure::Kind::File, m_path,
               QStringLiteral("holds no configuration file, NAME.%1")
                   .arg(PropertyManagerConst::getConfigFileExtension()));
    }
}

void OpenConfiguration::listFiles(const QFileInfo &directory, const QString &url,
                                  QStringList &entered)
{
    entered.append(directory.canonicalFilePath());
    const QFileInfoList entries = Access::generateDirectoryInfoList(QDir(directory.filePath()));
    for (const QFileInfo &entry : entries) {
        const QString entryUrl = joined(url, treeName(entry));
        if (entry.isDir()) {
            // The tree enters each directory once, and has no node for one without configurations.
            if (!entered.contains(entry.canonicalFilePath()) && m_root->isUrlValid(entryUrl)) {
                listFiles(entry, entryUrl, entered);
            }
            continue;
        }
        if (!isConfiguration(entry)) {
            continue;
        }
        const auto root = m_root->getLeaf(entryUrl);
        if (!root) {
            refuse(Failure::Kind::File, entry.filePath(),
                   LibraryReasons::behind(QStringLiteral("cannot be parsed")));
        }
        m_files.append({entryUrl, entry, joined(m_objectName, entryUrl),
                        url.isEmpty() ? m_root : m_root->getLeaf(url), root});
    }
}

QSharedPointer<ConfigurationDataValue> OpenConfiguration::leafAt(const QString &url) const
{
    auto leaf = url.isEmpty() ? QSharedPointer<ConfigurationDataValue>()
                              : m_root->getLeafConfigurationData(url);
    if (leaf) {
        return leaf;
    }
    if (m_root->isUrlValid(url)) {
        refuse(Failure::Kind::UnknownUrl, m_path,
               QStringLiteral("'%1' is a tree node and has no value").arg(url));
    }
    const QString nearest = nearestWord(url, m_urls);
    refuse(Failure::Kind::UnknownUrl, m_path,
           QStringLiteral("no element at '%1'%2")
               .arg(url, nearest.isEmpty() ? QString()
                                           : QStringLiteral("; did you mean '%1'?").arg(nearest)));
}

ConfigurationRules OpenConfiguration::rules(const QString &url) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    SelectorUrlArrayIndex index;
    QString arrayUrl;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, arrayUrl);
    if (!index.isValid()) {
        return ConfigurationRules::of(*leafAt(url));
    }
    const auto leaf = leafAt(arrayUrl);
    const Table table = tableOf(arrayUrl);
    if (index.getRowIndex() >= static_cast<quint32>(table.rows.size())
        || index.getColumnIndex() >= static_cast<quint32>(table.columns.size())) {
        refuse(Failure::Kind::UnknownUrl, m_path,
               QStringLiteral("'%1': no cell %2,%3; the array has %4 rows and %5 columns, counted "
                              "from 0")
                   .arg(arrayUrl, QString::number(index.getRowIndex()),
                        QString::number(index.getColumnIndex()), QString::number(table.rows.size()),
                        QString::number(table.columns.size())));
    }
    ConfigurationRules rules = table.columns[static_cast<int>(index.getColumnIndex())];
    rules.isReadOnly = rules.isReadOnly || ConfigurationRules::of(*leaf).isReadOnly;
    return rules;
}

QVariant OpenConfiguration::value(const QString &url) const
{
    const ConfigurationRules ofUrl = rules(url);
    const std::lock_guard<std::mutex> lock(m_mutex);
    SelectorUrlArrayIndex index;
    QString arrayUrl;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, arrayUrl);
    if (!index.isValid()) {
        return leafAt(url)->getValue();
    }
    return ofUrl.fromCell(Tools::extractConfigValueWithArrayIndexUrl(url, m_root));
}

OpenConfiguration::SetValueStatus OpenConfiguration::set(const QString &url, const QVariant &value)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto status = Tools::setConfigValueWithStatus(url, m_root, value);
    // Its reason is told by the status.
    LibraryReasons::take();
    if (status == Base::SetValueChanged) {
        const QString wanted =
            url.split(QLatin1Char('/'), Qt::SkipEmptyParts).join(QLatin1Char('/'));
        for (auto &file : m_files) {
            file.isChanged = file.isChanged || file.url.isEmpty() || wanted == file.url
                             || wanted.startsWith(file.url + QLatin1Char('/'))
                             || wanted.startsWith(file.url + QLatin1Char('#'));
        }
    }
    return status;
}

OpenConfiguration::Table OpenConfiguration::table(const QString &url) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return tableOf(url);
}

OpenConfiguration::Table OpenConfiguration::tableOf(const QString &url) const
{
    const auto leaf = leafAt(url);
    const QString place = QStringLiteral("'%1'").arg(url);
    const ConfigurationRules ofLeaf = ConfigurationRules::of(*leaf);
    if (!ofLeaf.isArray()) {
        refuse(Failure::Kind::Refused, place,
               QStringLiteral("is no array but a %1").arg(ofLeaf.type));
    }
    constexpr unsigned int columnDimension = 1;
    Array2dDataTypeWrapper wrapper(leaf);
    const QVariantList descriptions = wrapper.getArrayInfo(columnDimension);
    const QVariantList held = leaf->getValue().toList();
    if (leaf->getValue().userType() != QMetaType::QVariantList || descriptions.isEmpty()) {
        refuse(Failure::Kind::File, place,
               QStringLiteral("the array has no description of its columns"));
    }
    Table table;
    for (const QVariant &entry : descriptions) {
        const auto column = ConfigurationRules::of(entry.toMap());
        table.titles.append(column.label.isEmpty()
                                ? QStringLiteral("column %1").arg(table.columns.size())
                                : column.label);
        table.columns.append(column);
    }
    table.rows = wrapper.getArrayValueContent();
    table.isFlat = !held.isEmpty() && held.constFirst().userType() != QMetaType::QVariantList;
    for (const QVariant &row : std::as_const(table.rows)) {
        if (row.toList().size() != table.columns.size()) {
            refuse(Failure::Kind::File, place,
                   QStringLiteral("a row has %1 cells, %2 columns are described")
                       .arg(row.toList().size())
                       .arg(table.columns.size()));
        }
    }
    table.leastRows = table.rows.size();
    table.mostRows = table.rows.size();
    if (leaf->getProperty(Definitions::getKeyDataPropertyArrayHasDynamicRows()).toBool()) {
        const QVariant most = leaf->getProperty(Definitions::getKeyDataPropertyArrayMaxRows());
        table.leastRows = leaf->getProperty(Definitions::getKeyDataPropertyArrayMinRows()).toInt();
        table.mostRows = most.isNull() ? -1 : most.toInt();
    }
    return table;
}
