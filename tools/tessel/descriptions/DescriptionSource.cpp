#include "descriptions/DescriptionSource.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/DescriptionFolder.h"
#include "descriptions/DirectoryBuild.h"
#include "descriptions/TreeUrl.h"
#include "descriptions/UrlPattern.h"
#include "text/LogCollector.h"
#include "text/Output.h"
#include "text/Suggestion.h"
#include "trees/ChildrenInOrder.h"

#include <QFileInfo>

#include <algorithm>
#include <functional>
#include <iterator>
#include <typeinfo>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

BaseClassSharedPointer parseFile(const QString &path)
{
    requireDescriptionFile(path);
    auto root = ConfigurationAndProcessDataParser().parseFromFile(path);
    if (!root) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be parsed: %1").arg(parseProblem(path)));
    }
    return root;
}

BaseClassSharedPointer parseText(const QString &name, const QByteArray &text)
{
    LogCollector::takeReasons();
    auto root = ConfigurationAndProcessDataParser().parseFromByteArray(
        text, PropertyManagerConst::getProcessDataDescriptionFileExtension());
    if (!root) {
        refusePath(ExitCode::InputOutputFile, name,
                   QStringLiteral("carries a description that cannot be parsed: %1")
                       .arg(LogCollector::takeReasons()));
    }
    return root;
}

/// Taking a large tree apart, element by element, takes longer than to get a value. The process ends with
/// its last use anyway.
const BaseClassSharedPointer &keptToTheEnd(const BaseClassSharedPointer &root)
{
    static auto &kept = *new QVector<BaseClassSharedPointer>;
    kept.append(root);
    return root;
}

void noteLeftOut(const QString &url)
{
    writeErrorLine(
        QStringLiteral("tessel: note: '%1' is left out: its file does not parse").arg(url));
}

template <class Selection>
void collectLeaves(const BaseClassSharedPointer &node, const QString &prefix,
                   const Selection &selection, QVector<Leaf> &leaves)
{
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        // What a folder holds but cannot be parsed.
        if (!child) {
            continue;
        }
        if (const auto element = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            if (selection.isLeafTaken(url)) {
                leaves.append({url, element});
            }
        } else if (selection.isNodeEntered(url)) {
            collectLeaves(child, url + QLatin1Char('/'), selection, leaves);
        }
    }
}

bool isLeaf(const ConfigurationAndProcessDataBase &element)
{
    // The usual class, without a search through its bases.
    return typeid(element) == typeid(ProcessDataValue)
           || dynamic_cast<const ProcessDataValue *>(&element) != nullptr;
}

/// What is to be known of a tree before anybody asks for its leaves.
struct Outline
{
    bool hasLeaf = false;
    /// Without a file that could not be parsed, such as one without a name before its extension.
    bool isWhole = true;
};

void addOutline(const ConfigurationAndProcessDataBase &node, Outline &outline)
{
    for (const auto &child : node.getChildMap()) {
        if (!child) {
            outline.isWhole = false;
        } else if (isLeaf(*child)) {
            outline.hasLeaf = true;
        } else {
            addOutline(*child, outline);
        }
    }
}

void noteAllLeftOut(const ConfigurationAndProcessDataBase &node, const QString &prefix)
{
    const auto &children = node.getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const QString url = prefix + key;
        if (const BaseClassSharedPointer child = children[key]) {
            noteAllLeftOut(*child, url + QLatin1Char('/'));
        } else {
            noteLeftOut(url);
        }
    }
}

/// Where in @p leaves those at or below each of @p urls are; nothing for a pattern. One walk for all: looking at
/// each leaf for each URL, a hundred thousand URLs would take hours.
QHash<QString, QVector<int>> placesBelow(const QVector<Leaf> &leaves, const QStringList &urls)
{
    QHash<QString, QVector<int>> places;
    for (const auto &url : urls) {
        const QString plain = TreeUrl::normalized(url);
        if (!plain.isEmpty() && !plain.contains(QLatin1Char('*'))) {
            places.insert(plain, {});
        }
    }
    for (int i = 0; i < leaves.size(); ++i) {
        const QString &url = leaves.at(i).url;
        for (int end = 0; end >= 0;) {
            end = url.indexOf(QLatin1Char('/'), end + 1);
            const auto place = places.find(end < 0 ? url : url.left(end));
            if (place != places.end()) {
                place->append(i);
            }
        }
    }
    return places;
}

} // namespace

/// Which part of a tree is gone through, by URLs.
struct DescriptionSource::Selection
{
    std::function<bool(const QString &url)> isNodeEntered;
    std::function<bool(const QString &url)> isLeafTaken;
};

DescriptionSource::DescriptionSource(const QString &path, Layout layout)
    : m_path(path)
    , m_root(keptToTheEnd(parse(layout)))
{
    checkOutline();
}

DescriptionSource::DescriptionSource(const QString &name, const QByteArray &text)
    : m_path(name)
    , m_root(keptToTheEnd(parseText(name, text)))
{
    checkOutline();
}

void DescriptionSource::checkOutline() const
{
    Outline outline;
    addOutline(*m_root, outline);
    if (!outline.isWhole) {
        noteAllLeftOut(*m_root, {});
    }
    if (!outline.hasLeaf) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("holds no process value; its top level must be a tree node with "
                                  "leaves below"));
    }
}

BaseClassSharedPointer DescriptionSource::parse(Layout layout)
{
    if (!QFileInfo(m_path).isDir()) {
        return parseFile(m_path);
    }
    const DescriptionFolder folder(m_path);
    if (layout == Layout::AsWritten) {
        return folder.parse();
    }
    const LaidOutFolder laidOut = layOutFolder(folder);
    m_isAsWritten = laidOut.isBuilt;
    return laidOut.root;
}

QString DescriptionSource::key() const
{
    return m_root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
}

quint32 DescriptionSource::bufferSize() const
{
    const QVariant size = m_root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory());
    return size.toInt() < 1 ? 0 : size.toUInt();
}

bool DescriptionSource::isDoubleBuffered() const
{
    return m_root->getProperty(Definitions::getKeyDataPropertyDoubleBuffer()).toBool();
}

quint32 DescriptionSource::regionSize() const
{
    const ProcessDataBufferHandler layout(isDoubleBuffered());
    return bufferSize() == 0 ? 0 : layout.calculateSizeSharedMemory(bufferSize());
}

QString DescriptionSource::segmentName() const
{
    return key() + QLatin1String("SharedMemory");
}

QString DescriptionSource::semaphoreName() const
{
    return key() + QLatin1String("Semaphore");
}

void DescriptionSource::requireMemory() const
{
    if (bufferSize() == 0) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("describes no memory; its top level needs '%1'")
                       .arg(Definitions::getKeyDataPropertySizeOfSharedMemory()));
    }
    if (key().isEmpty()) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("has no memory key; its top level needs '%1'")
                       .arg(Definitions::getStrKeyProcessDataMemory()));
    }
}

const QVector<Leaf> &DescriptionSource::leaves() const
{
    if (!m_leaves) {
        const auto always = [](const QString & /*url*/) { return true; };
        QVector<Leaf> all;
        collectLeaves(m_root, {}, Selection{always, always}, all);
        m_leaves = all;
    }
    return *m_leaves;
}

QVector<Leaf> DescriptionSource::leavesIn(const Selection &selection) const
{
    QVector<Leaf> selected;
    // Who asks again may ask many times, and a walk sorts the children of each node on its way.
    if (m_isWalked) {
        std::copy_if(leaves().cbegin(), leaves().cend(), std::back_inserter(selected),
                     [&](const Leaf &leaf) { return selection.isLeafTaken(leaf.url); });
        return selected;
    }
    m_isWalked = true;
    collectLeaves(m_root, {}, selection, selected);
    return selected;
}

QVector<Leaf> DescriptionSource::leavesAt(const QStringList &urls) const
{
    if (urls.isEmpty()) {
        return leaves();
    }
    if (urls.size() > 1) {
        return leavesAtAll(urls);
    }
    return leavesAtOne(urls.constFirst());
}

QVector<Leaf> DescriptionSource::leavesAtAll(const QStringList &urls) const
{
    const auto places = placesBelow(leaves(), urls);
    QVector<Leaf> selected;
    for (const auto &url : urls) {
        const QVector<int> found = places.value(TreeUrl::normalized(url));
        for (const int place : found) {
            selected.append(leaves().at(place));
        }
        if (found.isEmpty()) {
            selected += leavesAtOne(url);
        }
    }
    return selected;
}

QVector<Leaf> DescriptionSource::leavesAtOne(const QString &url) const
{
    const UrlPattern wanted(url);
    QVector<Leaf> found = leavesIn({[&](const QString &node) { return wanted.mayLeadInto(node); },
                                    [&](const QString &leaf) { return wanted.leadsTo(leaf); }});
    if (found.isEmpty()) {
        refuseUrl(url);
    }
    return found;
}

Leaf DescriptionSource::leafAt(const QString &url) const
{
    const QString wanted = TreeUrl::normalized(url);
    if (m_isWalked) {
        const auto place = placesOfLeaves().constFind(wanted);
        if (place == placesOfLeaves().cend()) {
            refuseUrl(url);
        }
        return leaves().at(*place);
    }
    const QVector<Leaf> found = leavesIn(
        {[&](const QString &node) { return TreeUrl::isAtOrBelow(wanted, node); },
         [&](const QString &leaf) { return leaf == wanted; }});
    if (found.isEmpty()) {
        refuseUrl(url);
    }
    return found.first();
}

const QHash<QString, int> &DescriptionSource::placesOfLeaves() const
{
    // The first of those with one URL.
    for (int i = m_placesOfLeaves.isEmpty() ? leaves().size() - 1 : -1; i >= 0; --i) {
        m_placesOfLeaves.insert(leaves().at(i).url, i);
    }
    return m_placesOfLeaves;
}

void DescriptionSource::refuseUrl(const QString &url) const
{
    if (m_root->isUrlValid(url)) {
        refusePath(ExitCode::NotFound, m_path,
                   QStringLiteral("'%1' is a tree node and has no value").arg(url));
    }
    QStringList known;
    for (const auto &leaf : leaves()) {
        known.append(leaf.url);
    }
    refusePath(ExitCode::NotFound, m_path,
               QStringLiteral("no element at '%1'%2").arg(url, suggestion(url, known)));
}
