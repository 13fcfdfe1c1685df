#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>

#include <sys/stat.h>

/// The descriptions that the builder gets to see, as they stand in files.
namespace Description {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// A process value whose offset is not right yet. The builder counts bytes and asks for no type.
inline QJsonObject leaf(int position, int sizeValue, int sizeMetadata, int offset = -1)
{
    return {{Definitions::getKeyDataPropertyType(), QStringLiteral("uint32")},
            {Definitions::getKeyDataPropertyDisplayPosition(), position},
            {Definitions::getKeyDataPropertyOffsetSharedMemory(), offset},
            {Definitions::getKeyDataPropertySizeValue(), sizeValue},
            {Definitions::getKeyDataPropertySizeMetadata(), sizeMetadata},
            {Definitions::getKeyDataPropertyRelativeOffsetMetadata(), sizeValue}};
}

inline QJsonObject node(const QJsonObject &children, int position = 1)
{
    return {{Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode()},
            {Definitions::getKeyDataPropertyDisplayPosition(), position},
            {Definitions::getKeyDataPropertyValue(), children}};
}

inline QJsonObject root(const QJsonObject &children, const QString &key = {}, int size = -1)
{
    QJsonObject json = node(children);
    json.insert(Definitions::getKeyDataPropertySizeOfSharedMemory(), size);
    json.insert(Definitions::getKeyDataPropertyDoubleBuffer(), false);
    json.insert(Definitions::getStrKeyProcessDataMemory(), key);
    return json;
}

inline QJsonObject without(QJsonObject json, const QString &property)
{
    json.remove(property);
    return json;
}

inline QJsonObject with(QJsonObject json, const QString &property, const QJsonValue &value)
{
    json.insert(property, value);
    return json;
}

/// The JSON object at a URL of a description.
inline QJsonObject at(const QJsonObject &json, const QString &url)
{
    QJsonObject found = json;
    for (const QString &piece : url.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        found =
            found.value(Definitions::getKeyDataPropertyValue()).toObject().value(piece).toObject();
    }
    return found;
}

/// -1 if there is none.
inline int offsetOf(const QJsonObject &json, const QString &url)
{
    return at(json, url).value(Definitions::getKeyDataPropertyOffsetSharedMemory()).toInt(-1);
}
inline int sizeOf(const QJsonObject &json)
{
    return json.value(Definitions::getKeyDataPropertySizeOfSharedMemory()).toInt(-1);
}
inline QString keyOf(const QJsonObject &json)
{
    return json.value(Definitions::getStrKeyProcessDataMemory()).toString();
}

} // namespace Description

/// A directory of description files in which a test sees what was written.
class DescriptionDirectory
{
public:
    /// Name of a file to what tells one version of it from every other.
    using Snapshot = QMap<QString, QByteArray>;

    explicit DescriptionDirectory(const QString &name = QStringLiteral("device"))
        : m_path(m_parent.filePath(name))
    {
        QDir().mkpath(m_path);
    }

    QString path() const { return m_path; }
    QString filePath(const QString &name) const { return m_path + QLatin1Char('/') + name; }

    bool write(const QString &name, const QByteArray &content) const
    {
        QDir().mkpath(QFileInfo(filePath(name)).path());
        QFile file(filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }
    bool write(const QString &name, const QJsonObject &json) const
    {
        return write(name, QJsonDocument(json).toJson());
    }
    /// The tree of files below @p source, written anew.
    bool copy(const QString &source) const
    {
        bool isCopied = false;
        QDirIterator files(source, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QFile file(files.next());
            isCopied = file.open(QIODevice::ReadOnly)
                       && write(QDir(source).relativeFilePath(file.fileName()), file.readAll());
            if (!isCopied) {
                return false;
            }
        }
        return isCopied;
    }

    QByteArray read(const QString &name) const
    {
        QFile file(filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QJsonObject json(const QString &name) const
    {
        return QJsonDocument::fromJson(read(name)).object();
    }

    /// All files below the directory, hidden ones too, sorted by name.
    QStringList files() const
    {
        QStringList names;
        QDirIterator entries(m_path, QDir::Files | QDir::Hidden | QDir::System,
                             QDirIterator::Subdirectories);
        while (entries.hasNext()) {
            names.append(QDir(m_path).relativeFilePath(entries.next()));
        }
        names.sort();
        return names;
    }
    /// Contents alone.
    Snapshot contents() const
    {
        Snapshot snapshot;
        for (const QString &name : files()) {
            snapshot.insert(name, read(name));
        }
        return snapshot;
    }
    /// Contents with inode and time of the last change: differs also where the same was written.
    Snapshot snapshot() const
    {
        Snapshot snapshot = contents();
        for (auto file = snapshot.begin(); file != snapshot.end(); ++file) {
            struct stat status = {};
            ::stat(QFile::encodeName(filePath(file.key())).constData(), &status);
            file.value() += "\ninode " + QByteArray::number(quint64{status.st_ino}) + " changed "
                            + QByteArray::number(qint64{status.st_mtim.tv_sec}) + '.'
                            + QByteArray::number(qint64{status.st_mtim.tv_nsec});
        }
        return snapshot;
    }

private:
    QTemporaryDir m_parent;
    QString m_path;
};
