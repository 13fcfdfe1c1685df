#include "descriptions/DescriptionSource.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/DescriptionFolder.h"
#include "descriptions/TreeUrl.h"
#include "descriptions/UrlPattern.h"
#include "text/Output.h"
#include "text/Suggestion.h"

#include <QFileInfo>

#include <algorithm>

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

BaseClassSharedPointer parse(const QString &path)
{
    return QFileInfo(path).isDir() ? DescriptionFolder(path).parse() : parseFile(path);
}

void noteLeftOut(const QString &url)
{
    writeErrorLine(
        QStringLiteral("tessel: note: '%1' is left out: its file does not parse").arg(url));
}

void collectLeaves(const BaseClassSharedPointer &node, const QString &prefix, QVector<Leaf> &leaves)
{
    const auto &children = node->getChildMap();
    for (const auto &key : TreeUrl::sortedKeys(children)) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        // What a folder holds but cannot be parsed, such as a file without a name before its
        // extension.
        if (!child) {
            noteLeftOut(url);
            continue;
        }
        if (const auto element = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            leaves.append({url, element});
        } else {
            collectLeaves(child, url + QLatin1Char('/'), leaves);
        }
    }
}

} // namespace

DescriptionSource::DescriptionSource(const QString &path) : m_path(path), m_root(parse(path))
{
    collectLeaves(m_root, {}, m_leaves);
    if (m_leaves.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("holds no process value; its top level must be a tree node with "
                                  "leaves below"));
    }
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

QVector<Leaf> DescriptionSource::leavesAt(const QStringList &urls) const
{
    if (urls.isEmpty()) {
        return m_leaves;
    }
    QVector<Leaf> selected;
    for (const auto &url : urls) {
        const UrlPattern wanted(url);
        const int before = selected.size();
        std::copy_if(m_leaves.cbegin(), m_leaves.cend(), std::back_inserter(selected),
                     [&wanted](const Leaf &leaf) { return wanted.leadsTo(leaf.url); });
        if (selected.size() == before) {
            refuseUrl(url);
        }
    }
    return selected;
}

Leaf DescriptionSource::leafAt(const QString &url) const
{
    const QString wanted = TreeUrl::normalized(url);
    const auto *const found = std::find_if(
        m_leaves.cbegin(), m_leaves.cend(),
        [&wanted](const Leaf &leaf) { return leaf.url == wanted; });
    if (found == m_leaves.cend()) {
        refuseUrl(url);
    }
    return *found;
}

void DescriptionSource::refuseUrl(const QString &url) const
{
    if (m_root->isUrlValid(url)) {
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
