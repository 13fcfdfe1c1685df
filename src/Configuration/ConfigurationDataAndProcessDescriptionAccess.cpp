#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"

#include "Companion/JsonText_p.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/RegularFile_p.h"

#include <QDebug>
#include <QFile>
#include <QJsonObject>

#include <algorithm>

namespace {

bool createFilePath(const QDir &directory, const QString &instanceName, const QString &extension,
                    QString &path)
{
    const QString candidate = directory.filePath(instanceName + QLatin1Char('.') + extension);
    if (!QFile::exists(candidate)) {
        return false;
    }
    path = candidate;
    return true;
}

/// What an object has under @p key; invalid if it has nothing there.
QVariant memberOf(const JsonText::Value &object, const QString &key)
{
    const bool isAscii = std::all_of(key.cbegin(), key.cend(), [](QChar character) {
        return character > QChar(0) && character < QChar(0x80);
    });
    if (!object.isObject() || !isAscii) {
        return object.toJsonValue().toObject().value(key).toVariant();
    }
    const JsonText::Value member = object.member(QLatin1String(key.toLatin1()));
    return member.isValid() ? member.toVariant() : QVariant();
}

} // namespace

ConfigurationDataAndProcessDescriptionAccess::~ConfigurationDataAndProcessDescriptionAccess() =
    default;

QList<QFileInfo> ConfigurationDataAndProcessDescriptionAccess::generateDirectoryInfoList(
    const QDir &directory)
{
    QDir listed(directory);
    listed.setFilter(QDir::Dirs | QDir::Files | QDir::NoDot | QDir::NoDotDot);
    listed.setSorting(QDir::Name);
    return listed.entryInfoList();
}

bool ConfigurationDataAndProcessDescriptionAccess::containsFileOrDir(
    const QList<QFileInfo> &entries, const QString &ending)
{
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() || entry.fileName().endsWith(ending)) {
            return true;
        }
    }
    return false;
}

QString ConfigurationDataAndProcessDescriptionAccess::getOrigin()
{
    static const QString origin = QStringLiteral("Device");
    return origin;
}

bool ConfigurationDataAndProcessDescriptionAccess::createConfigurationFilePath(
    const QDir &directory, const QString &instanceName, QString &path)
{
    return createFilePath(directory, instanceName, PropertyManagerConst::getConfigFileExtension(),
                          path);
}

bool ConfigurationDataAndProcessDescriptionAccess::createProcessDescriptionFilePath(
    const QDir &directory, const QString &instanceName, QString &path)
{
    return createFilePath(directory, instanceName,
                          PropertyManagerConst::getProcessDataDescriptionFileExtension(), path);
}

void ConfigurationDataAndProcessDescriptionAccess::readFolderDescription(const QString &path,
                                                                         const QString &key,
                                                                         QVariant &value)
{
    if (!QFileInfo(path).isDir()) {
        return;
    }
    const QString filePath = path + QLatin1Char('/')
                             + PropertyManagerConst::getMenuFolderDescriptionFilename();
    if (!QFile::exists(filePath)) {
        qDebug() << "No description file found!";
        return;
    }
    QFile file;
    if (!RegularFile::openForReading(filePath, file)) {
        return;
    }
    JsonText text;
    if (!text.read(RegularFile::readText(file))) {
        qWarning() << "Can't parse Json! of File" << filePath;
        return;
    }
    value = memberOf(text.root(), key);
}
