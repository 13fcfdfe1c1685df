#include "configuration/ConfigurationSource.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/TreeUrl.h"
#include "descriptions/UrlPattern.h"
#include "text/LogCollector.h"
#include "text/Suggestion.h"
#include "trees/ChildrenInOrder.h"

#include <algorithm>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

void checkAccess(const QFileInfo &entry)
{
    if (!entry.exists()) {
        refusePath(ExitCode::NotFound, entry.filePath(), QStringLiteral("no such file or folder"));
    }
    if (!entry.isDir() && !entry.isFile()) {
        refusePath(ExitCode::InputOutputFile, entry.filePath(),
                   QStringLiteral("is no regular file"));
    }
    // A folder is listed by its read permission and entered by the other.
    if (!entry.isReadable() || (entry.isDir() && !entry.isExecutable())) {
        refusePath(ExitCode::NoAccess, entry.filePath(),
                   QStringLiteral("no permission to read it"));
    }
}

Base::BaseClassSharedPointer parse(const QString &path)
{
    auto root = ConfigurationAndProcessDataParser().parseFromFile(path);
    if (!root) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be parsed: %1").arg(parseProblem(path)));
    }
    return root;
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

/// The name under which the library holds a file or folder in the tree of its directory.
QString treeName(const QFileInfo &entry)
{
    return entry.isDir() ? entry.fileName() : entry.fileName().section(QLatin1Char('.'), 0, 0);
}

/// The folders and the configuration files in a directory.
QList<QFileInfo> configurationEntries(const QFileInfo &directory)
{
    QList<QFileInfo> entries = Access::generateDirectoryInfoList(QDir(directory.filePath()));
    const auto isOther = [](const QFileInfo &entry) {
        return !entry.isDir()
               && !(entry.isFile()
                    && entry.fileName().endsWith(PropertyManagerConst::getConfigFileExtension()));
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isOther), entries.end());
    return entries;
}

[[noreturn]] void refuseName(const QFileInfo &entry, const QString &url)
{
    refusePath(ExitCode::InputOutputFile, entry.filePath(),
               QStringLiteral("'%1' is also the name of another file or folder here").arg(url));
}

bool holdsConfiguration(const QFileInfo &folder)
{
    return Access::containsFileOrDir(Access::generateDirectoryInfoList(QDir(folder.filePath())),
                                     PropertyManagerConst::getConfigFileExtension());
}

/// The tree would hold only one of two entries with the same name.
void noteName(const QFileInfo &entry, const QString &url, QStringList &names)
{
    const QString name = treeName(entry);
    if (names.contains(name)) {
        refuseName(entry, TreeUrl::joined(url, name));
    }
    names.append(name);
}

void collectLeaves(const Base::BaseClassSharedPointer &node, const QString &url,
                   QVector<ConfigurationLeaf> &leaves)
{
    if (const auto element = qSharedPointerDynamicCast<ConfigurationDataValue>(node)) {
        leaves.append({url, element});
        return;
    }
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        collectLeaves(children[key], TreeUrl::joined(url, key), leaves);
    }
}

} // namespace

QString ConfigurationLeaf::text(const QString &property) const
{
    return element->getProperty(property).toString();
}

bool ConfigurationLeaf::isArray() const
{
    return text(Definitions::getKeyDataPropertyType()) == Definitions::getKeyDataTypeArray();
}

ConfigurationSource::ConfigurationSource(const QString &path) : m_path(path)
{
    const QFileInfo entry(path);
    checkAccess(entry);
    if (entry.isDir()) {
        openDirectory();
    } else {
        openFile();
    }
    collectLeaves(m_root, {}, m_leaves);
    // The root of a single file that is a leaf has no URL.
    if (m_leaves.isEmpty() || m_leaves.constFirst().url.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("holds no configuration value; its top level must be a tree "
                                  "node with leaves below"));
    }
}

QVector<ConfigurationLeaf> ConfigurationSource::leavesAt(const QString &url) const
{
    const bool isEverything = TreeUrl::normalized(url).isEmpty();
    const UrlPattern wanted(url);
    QVector<ConfigurationLeaf> selected;
    std::copy_if(
        m_leaves.cbegin(), m_leaves.cend(), std::back_inserter(selected),
        [&](const ConfigurationLeaf &leaf) { return isEverything || wanted.leadsTo(leaf.url); });
    if (selected.isEmpty()) {
        refuseUrl(url);
    }
    return selected;
}

bool ConfigurationSource::hasLeaf(const QString &url) const
{
    const QString wanted = TreeUrl::normalized(url);
    return std::any_of(m_leaves.cbegin(), m_leaves.cend(),
                       [&wanted](const ConfigurationLeaf &leaf) { return leaf.url == wanted; });
}

ConfigurationLeaf ConfigurationSource::leafAt(const QString &url) const
{
    const QString wanted = TreeUrl::normalized(url);
    const auto *const found = std::find_if(
        m_leaves.cbegin(), m_leaves.cend(),
        [&wanted](const ConfigurationLeaf &leaf) { return leaf.url == wanted; });
    if (found == m_leaves.cend()) {
        refuseUrl(url);
    }
    return *found;
}

const ConfigurationFile &ConfigurationSource::fileOf(const ConfigurationLeaf &leaf) const
{
    const auto *const found = std::find_if(m_files.cbegin(), m_files.cend(),
                                           [&leaf](const ConfigurationFile &file) {
                                               return TreeUrl::isAtOrBelow(leaf.url, file.url);
                                           });
    Q_ASSERT(found != m_files.cend());
    return *found;
}

void ConfigurationSource::openFile()
{
    const QFileInfo entry(m_path);
    const QString postfix = QLatin1Char('.') + PropertyManagerConst::getConfigFileExtension();
    if (!entry.fileName().endsWith(postfix)) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("no configuration; its name must end in %1").arg(postfix));
    }
    m_root = parse(m_path);
    m_objectName = QFileInfo(entry.absolutePath()).fileName();
    m_files.append({{}, entry, treeName(entry), directoryOf(treeName(entry), m_root), m_root});
}

void ConfigurationSource::openDirectory()
{
    // The name is that of the directory also for "." and for a path with a slash at its end.
    m_objectName = QFileInfo(QDir::cleanPath(QFileInfo(m_path).absoluteFilePath())).fileName();
    if (!Access::parseConfigDir(m_root, QFileInfo(m_path))) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("cannot be parsed: %1").arg(LogCollector::takeReasons()));
    }
    LinkedFolders links(m_path);
    listFiles(QFileInfo(m_path), {}, links);
    if (m_files.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("holds no configuration file, NAME.%1")
                       .arg(PropertyManagerConst::getConfigFileExtension()));
    }
}

void ConfigurationSource::listFiles(const QFileInfo &directory, const QString &url,
                                    LinkedFolders &links)
{
    checkAccess(directory);
    const QList<QFileInfo> entries = configurationEntries(directory);
    QStringList names;
    for (const QFileInfo &entry : entries) {
        if (entry.isFile() || (!entry.isSymLink() && holdsConfiguration(entry))) {
            noteName(entry, url, names);
        }
    }
    for (const QFileInfo &entry : entries) {
        const QString entryUrl = TreeUrl::joined(url, treeName(entry));
        if (entry.isFile()) {
            addFile(entry, entryUrl, url);
            continue;
        }
        checkAccess(entry);
        // The tree has no node for these.
        if (links.wayOf(entry) != LinkedFolders::Way::Entered || !holdsConfiguration(entry)) {
            continue;
        }
        if (entry.isSymLink()) {
            noteName(entry, url, names);
        }
        listFiles(entry, entryUrl, links);
    }
}

void ConfigurationSource::addFile(const QFileInfo &entry, const QString &url,
                                  const QString &directoryUrl)
{
    checkAccess(entry);
    const auto root = m_root->getLeaf(url);
    if (!root) {
        // The messages so far are those of all files; the ones of this file say what is wrong.
        LogCollector::takeReasons();
        parse(entry.filePath());
        refusePath(ExitCode::InputOutputFile, entry.filePath(), QStringLiteral("cannot be parsed"));
    }
    m_files.append({url, entry, TreeUrl::joined(m_objectName, url),
                    directoryUrl.isEmpty() ? m_root : m_root->getLeaf(directoryUrl), root});
}

void ConfigurationSource::refuseUrl(const QString &url) const
{
    const QString wanted = TreeUrl::normalized(url);
    const bool isNode = !wanted.isEmpty() && m_root->isUrlValid(wanted);
    if (isNode || wanted.isEmpty()) {
        refusePath(ExitCode::NotFound, m_path,
                   QStringLiteral("'%1' is a tree node and has no value").arg(url));
    }
    QStringList known;
    for (const auto &leaf : m_leaves) {
        known.append(leaf.url);
    }
    refusePath(ExitCode::NotFound, m_path,
               QStringLiteral("no element at '%1'%2").arg(url, suggestion(url, known)));
}
