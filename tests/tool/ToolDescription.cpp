#include "ToolDescription.h"

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QStringList>

#include <cerrno>

#include <sys/sem.h>

namespace {

QString newKey()
{
    static int number = 0;
    return QStringLiteral("tesselToolTest%1x%2")
        .arg(QCoreApplication::applicationPid())
        .arg(++number);
}

QJsonObject emptyNode()
{
    return {{QStringLiteral("type"), QStringLiteral("treenode")},
            {QStringLiteral("value"), QJsonObject()}};
}

/// Inserts an element below a node, by the pieces of its URL.
void insert(QJsonObject &node, QStringList pieces, const QJsonObject &element)
{
    QJsonObject children = node.value(QStringLiteral("value")).toObject();
    const QString piece = pieces.takeFirst();
    QJsonObject child = element;
    if (!pieces.isEmpty()) {
        child = children.contains(piece) ? children.value(piece).toObject() : emptyNode();
        insert(child, pieces, element);
    }
    children.insert(piece, child);
    node.insert(QStringLiteral("value"), children);
}

} // namespace

ToolDescription::ToolDescription() : m_key(newKey()), m_root(emptyNode())
{
    m_root.insert(QStringLiteral("keyProcessDataMemory"), m_key);
    m_root.insert(QStringLiteral("doubleBuffer"), true);
}

void ToolDescription::add(const QString &url, const QString &type, Metadata metadata, int size,
                          const QJsonObject &properties)
{
    constexpr int metadataSize = 4;
    QJsonObject leaf{{QStringLiteral("type"), type},
                     {QStringLiteral("offsetSharedMemory"), m_size},
                     {QStringLiteral("sizeValue"), size},
                     {QStringLiteral("displayPosition"), m_size}};
    m_size += size;
    if (metadata == Metadata::ErrorState) {
        leaf.insert(QStringLiteral("relativeOffsetMetadata"), size);
        leaf.insert(QStringLiteral("sizeMetadata"), metadataSize);
        m_size += metadataSize;
    }
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        leaf.insert(property.key(), property.value());
    }
    insert(m_root, url.split(QLatin1Char('/')), leaf);
    m_root.insert(QStringLiteral("sizeOfSharedMemory"), m_size);
}

void ToolDescription::setRoot(const QString &key, const QJsonValue &value)
{
    m_root.insert(key, value);
}

QString ToolDescription::write()
{
    return write(QStringLiteral("plant.process.json"), QJsonDocument(m_root).toJson());
}

QString ToolDescription::write(const QString &name, const QByteArray &text) const
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        qFatal("The description cannot be written");
    }
    return file.fileName();
}

bool ToolDescription::hasSegment() const
{
    return QFile::exists(segmentPath());
}

bool ToolDescription::hasSemaphores() const
{
    const key_t key = SystemVSemaphoreBaseClass::systemVKey(m_key + QStringLiteral("Semaphore"));
    return semget(key, 0, 0) >= 0;
}

void ToolDescription::addEveryForm()
{
    const QVector<QPair<QString, int>> forms = {
        {QStringLiteral("boolean"), 1}, {QStringLiteral("int8"), 1},
        {QStringLiteral("int16"), 2},   {QStringLiteral("int32"), 4},
        {QStringLiteral("int64"), 8},   {QStringLiteral("uint8"), 1},
        {QStringLiteral("uint16"), 2},  {QStringLiteral("uint32"), 4},
        {QStringLiteral("uint64"), 8},  {QStringLiteral("float"), 4},
        {QStringLiteral("double"), 8},  {QStringLiteral("string"), 16}};
    for (const auto &form : forms) {
        add(QStringLiteral("full/") + form.first, form.first, Metadata::ErrorState, form.second);
        add(QStringLiteral("bare/") + form.first, form.first, Metadata::None, form.second);
    }
    const int sharedByte = m_size;
    add(QStringLiteral("bare/bit0"), QStringLiteral("bit"), Metadata::None, 1,
        {{QStringLiteral("bitmask"), 1}});
    add(QStringLiteral("bare/bit1"), QStringLiteral("bit"), Metadata::None, 1,
        {{QStringLiteral("bitmask"), 2}, {QStringLiteral("offsetSharedMemory"), sharedByte}});
}
