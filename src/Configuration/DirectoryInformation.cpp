// Questions that are asked of the files of an instance before anything else happens.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Configuration/ParsedDescriptions_p.h"

#include <QDebug>

#include <optional>

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// The facts of the one region that all files of a directory describe.
struct MemoryFacts
{
    bool doubleBuffer;
    int size;
    QString key;
};

/// Nothing if one of the three is missing or of a wrong type.
std::optional<MemoryFacts> readFacts(const ConfigurationAndProcessDataBase &root)
{
    const QVariant doubleBuffer = root.getProperty(Definitions::getKeyDataPropertyDoubleBuffer());
    const QVariant size = root.getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory());
    const QVariant key = root.getProperty(Definitions::getStrKeyProcessDataMemory());
    if (!doubleBuffer.canConvert(QMetaType::Bool) || !size.canConvert(QMetaType::Int)
        || !key.canConvert(QMetaType::QString)) {
        return std::nullopt;
    }
    return MemoryFacts{doubleBuffer.toBool(), size.toInt(), key.toString()};
}

/// Reports every difference between the reference and the file at @p path.
bool compareFacts(const MemoryFacts &reference, const MemoryFacts &facts, const QString &path)
{
    bool isEqual = true;
    if (reference.doubleBuffer != facts.doubleBuffer) {
        qWarning() << "DoubleBuffer value is different:" << reference.doubleBuffer
                   << "!=" << facts.doubleBuffer << path;
        isEqual = false;
    }
    if (reference.size != facts.size) {
        qWarning() << "SharedMemorySize is different:" << reference.size << "!=" << facts.size
                   << path;
        isEqual = false;
    }
    if (reference.key != facts.key) {
        qWarning() << "SharedMemoryKey is different:" << reference.key << "!=" << facts.key << path;
        isEqual = false;
    }
    return isEqual;
}

BaseClassSharedPointer parseDependency(const QDir &directory, const QString &instanceName)
{
    if (!directory.exists()) {
        qWarning() << "Dependency folder does not exist:" << directory.path();
        return {};
    }
    QString path;
    if (!Access::createConfigurationFilePath(directory, instanceName, path)) {
        qWarning() << "Cannot parse dependency file." << path;
        return {};
    }
    return ConfigurationAndProcessDataParser().parseFromFile(path);
}

} // namespace

QString Access::getDependency(const QDir &directory, const QString &instanceName)
{
    if (instanceName.isEmpty()) {
        qWarning() << "Dependency instance name is empty!";
        return {};
    }
    const BaseClassSharedPointer root = parseDependency(directory, instanceName);
    if (root.isNull()) {
        return {};
    }
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    if (text.isEmpty()) {
        qWarning() << "Unable to frame dependency JSON-String!";
        return {};
    }
    return DirectoryWalk::decodeToFirstNul(text);
}

bool Access::getSharedMemoryInfoFromDir(const QFileInfo &directory, bool &doubleBuffer, int &size,
                                        QString &key)
{
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(
        directory.filePath(),
        {QStringLiteral("*.") + PropertyManagerConst::getProcessDataDescriptionFileExtension()},
        files);
    if (files.isEmpty()) {
        qWarning() << "No sharedMemory description:" << directory.filePath();
        return false;
    }
    bool allAgree = true;
    std::optional<MemoryFacts> reference;
    for (const QFileInfo &file : std::as_const(files)) {
        const QString path = file.filePath();
        const BaseClassSharedPointer root = ConfigurationAndProcessDataParser().parseFromFile(path);
        if (root.isNull()) {
            qWarning() << "Can't parse process data file:" << path;
            allAgree = false;
            continue;
        }
        const std::optional<MemoryFacts> facts = readFacts(*root);
        ParsedDescriptions::putBack(root);
        if (!facts) {
            qWarning() << "Can't read sharedMemorySize or -Key:" << size << key << "path:" << path;
            allAgree = false;
        } else if (!reference) {
            reference = facts;
            doubleBuffer = facts->doubleBuffer;
            size = facts->size;
            key = facts->key;
        } else if (!compareFacts(*reference, *facts, path)) {
            allAgree = false;
        }
    }
    return allAgree;
}
