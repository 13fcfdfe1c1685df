// Writing a configuration back to its files.

#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "native/OpenConfiguration.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace {

using Base = ConfigurationAndProcessDataBase;

/// Guards the one record of stamps that the process has.
std::mutex &recordMutex()
{
    static std::mutex mutex;
    return mutex;
}

[[noreturn]] void refuse(Failure::Kind kind, const QFileInfo &entry, const QString &reason)
{
    throw Failure{kind,
                  LibraryReasons::behind(QStringLiteral("%1: %2").arg(entry.filePath(), reason))};
}

QByteArray contentOf(const QFileInfo &entry)
{
    QFile file(entry.filePath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool putBack(const QFileInfo &entry, const QByteArray &content)
{
    QSaveFile file(entry.canonicalFilePath());
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
           && file.commit();
}

QByteArray framed(const Base::BaseClassSharedPointer &root)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

/// The first value of @p former that @p latter does not hold, by its URL; empty if there is none.
QString lostValue(const Base &former, const Base &latter, const QString &url)
{
    const QString key = QStringLiteral("value");
    const QVariant value = former.getProperty(key);
    if (value != latter.getProperty(key) || value.isNull() != latter.getProperty(key).isNull()) {
        return url;
    }
    const auto &children = former.getChildMap();
    for (auto child = children.cbegin(); child != children.cend(); ++child) {
        const auto counterpart = latter.getChildMap().value(child.key());
        const QString childUrl = url.isEmpty() ? child.key() : url + QLatin1Char('/') + child.key();
        QString lost = counterpart ? lostValue(**child, *counterpart, childUrl) : childUrl;
        if (!lost.isEmpty()) {
            return lost;
        }
    }
    return {};
}

void requireWritable(const QFileInfo &entry)
{
    const QFileInfo target(entry.canonicalFilePath());
    if (!target.isWritable() || !QFileInfo(target.path()).isWritable()) {
        refuse(Failure::Kind::Access, entry,
               QStringLiteral("no permission to write the file or its folder"));
    }
}

} // namespace

/// A text from which other values would come back than were put in must not get to the disk.
void OpenConfiguration::requireKeepsValues(const File &file) const
{
    const auto copy = ConfigurationAndProcessDataParser().parseFromByteArray(
        framed(file.root), PropertyManagerConst::getConfigFileExtension());
    const QString lost = copy ? lostValue(*file.root, *copy, file.url) : file.url;
    if (!copy || !lost.isEmpty()) {
        refuse(Failure::Kind::Refused, file.entry,
               QStringLiteral("'%1' cannot be written to a file without a change").arg(lost));
    }
}

QVector<ConfigurationStamp> OpenConfiguration::write(const File &file) const
{
    const QByteArray former = contentOf(file.entry);
    auto &handler = ConfigurationModificationHandler::getInstance();
    const std::lock_guard<std::mutex> lock(recordMutex());
    handler.clearModifiedInstances();
    // Given the one file, and not its directory, the walk stamps and writes nothing else.
    ConfigurationDataAndProcessDescriptionAccess::frameConfigDir(
        file.directory, QStringLiteral("tessel"), m_objectName, file.entry, file.instanceName);
    if (contentOf(file.entry) != framed(file.root)) {
        const bool isAsItWas = contentOf(file.entry) == former || putBack(file.entry, former);
        refuse(Failure::Kind::File, file.entry,
               isAsItWas ? QStringLiteral("could not be written and is as it was")
                         : QStringLiteral("could not be written whole, and the former text is "
                                          "lost"));
    }
    QList<ModifiedInstanceItem> items;
    handler.getModifiedInstances(items);
    QVector<ConfigurationStamp> stamps;
    for (const auto &item : std::as_const(items)) {
        stamps.append({item.instanceName, handler.getModifiedBy(file.root), item.lastModified});
    }
    return stamps;
}

QVector<ConfigurationStamp> OpenConfiguration::save()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    // All files are looked over before the first one is touched.
    for (const auto &file : std::as_const(m_files)) {
        if (file.isChanged) {
            requireWritable(file.entry);
            requireKeepsValues(file);
        }
    }
    QVector<ConfigurationStamp> stamps;
    for (auto &file : m_files) {
        if (file.isChanged) {
            stamps += write(file);
            file.isChanged = false;
        }
    }
    return stamps;
}
