#include "DescriptionSource.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Failure.h"
#include "LogCollector.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "Suggestion.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <limits>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

[[noreturn]] void refuseFile(ExitCode code, const QString &path, const QString &reason)
{
    throw Failure{code, QStringLiteral("%1: %2").arg(path, reason)};
}

void checkFile(const QString &path)
{
    const QFileInfo file(path);
    if (!file.exists()) {
        refuseFile(ExitCode::NotFound, path, QStringLiteral("no such file"));
    }
    if (file.isDir()) {
        refuseFile(ExitCode::InputOutputFile, path,
                   QStringLiteral("is a folder; name a description file"));
    }
    if (!file.isReadable()) {
        refuseFile(ExitCode::NoAccess, path, QStringLiteral("no permission to read it"));
    }
    const QString postfix = QLatin1Char('.')
                            + PropertyManagerConst::getProcessDataDescriptionFileExtension();
    if (!file.fileName().endsWith(postfix)) {
        refuseFile(ExitCode::InputOutputFile, path,
                   QStringLiteral("no process description; its name must end in %1").arg(postfix));
    }
}

/// "line 3, column 7: reason" if the file is no JSON, else what the library said.
QString parseProblem(const QString &path)
{
    QString reasons = LogCollector::takeReasons();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return reasons;
    }
    const QByteArray text = file.readAll();
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    if (error.error == QJsonParseError::NoError) {
        return reasons;
    }
    // The offset counts the character that does not fit.
    const QByteArray before = text.left(std::max(error.offset - 1, 0));
    return QStringLiteral("line %1, column %2: %3")
        .arg(before.count('\n') + 1)
        .arg(before.size() - before.lastIndexOf('\n'))
        .arg(error.errorString());
}

BaseClassSharedPointer parse(const QString &path)
{
    checkFile(path);
    auto root = ConfigurationAndProcessDataParser().parseFromFile(path);
    if (!root) {
        refuseFile(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be parsed: %1").arg(parseProblem(path)));
    }
    return root;
}

int displayPosition(const BaseClassSharedPointer &element)
{
    const QVariant position = element->getProperty(
        Definitions::getKeyDataPropertyDisplayPosition());
    return position.isValid() ? position.toInt() : std::numeric_limits<int>::max();
}

/// The keys of a node's children, by display position and then by name.
QStringList sortedKeys(const ConfigurationAndProcessDataBase::ChildMap &children)
{
    QStringList keys = children.keys();
    std::sort(keys.begin(), keys.end());
    std::stable_sort(keys.begin(), keys.end(), [&](const QString &left, const QString &right) {
        return displayPosition(children[left]) < displayPosition(children[right]);
    });
    return keys;
}

void collectLeaves(const BaseClassSharedPointer &node, const QString &prefix, QVector<Leaf> &leaves)
{
    const auto &children = node->getChildMap();
    for (const auto &key : sortedKeys(children)) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        if (const auto element = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            leaves.append({url, element});
        } else {
            collectLeaves(child, url + QLatin1Char('/'), leaves);
        }
    }
}

QString normalized(const QString &url)
{
    return url.split(QLatin1Char('/'), Qt::SkipEmptyParts).join(QLatin1Char('/'));
}

} // namespace

DescriptionSource::DescriptionSource(const QString &path) : m_path(path), m_root(parse(path))
{
    collectLeaves(m_root, {}, m_leaves);
    if (m_leaves.isEmpty()) {
        refuseFile(ExitCode::InputOutputFile, m_path,
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
        refuseFile(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("describes no memory; its top level needs '%1'")
                       .arg(Definitions::getKeyDataPropertySizeOfSharedMemory()));
    }
    if (key().isEmpty()) {
        refuseFile(ExitCode::InputOutputFile, m_path,
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
        const QString wanted = normalized(url);
        const int before = selected.size();
        std::copy_if(m_leaves.cbegin(), m_leaves.cend(), std::back_inserter(selected),
                     [&wanted](const Leaf &leaf) {
                         return leaf.url == wanted
                                || leaf.url.startsWith(wanted + QLatin1Char('/'));
                     });
        if (selected.size() == before) {
            refuseUrl(url);
        }
    }
    return selected;
}

Leaf DescriptionSource::leafAt(const QString &url) const
{
    const QString wanted = normalized(url);
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
        refuseFile(ExitCode::NotFound, m_path,
                   QStringLiteral("'%1' is a tree node and has no value").arg(url));
    }
    QStringList known;
    for (const auto &leaf : m_leaves) {
        known.append(leaf.url);
    }
    refuseFile(ExitCode::NotFound, m_path,
               QStringLiteral("no element at '%1'%2").arg(url, suggestion(url, known)));
}
