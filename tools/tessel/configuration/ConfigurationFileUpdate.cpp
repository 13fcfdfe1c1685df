#include "configuration/ConfigurationFileUpdate.h"

#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "descriptions/ReplacedFile.h"
#include "text/Failure.h"
#include "text/LogCollector.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>

#include <filesystem>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using Base = ConfigurationAndProcessDataBase;

[[noreturn]] void refuse(ExitCode code, const ConfigurationFile &file, const QString &reason)
{
    QString line = QStringLiteral("%1: %2").arg(file.entry.filePath(), reason);
    const QString reasons = LogCollector::takeReasons();
    if (!reasons.isEmpty()) {
        line += QStringLiteral(" (%1)").arg(reasons);
    }
    throw Failure{code, line};
}

std::filesystem::path systemPath(const QString &path)
{
    return {QFile::encodeName(path).toStdString()};
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Whether a second name of the file could be removed again: in a folder like /tmp, whoever may
/// write there makes names, and only the owner of the file or of the folder removes them.
bool isNameRemovable(const QString &path)
{
    struct stat file = {};
    struct stat folder = {};
    const QByteArray folderPath = QFile::encodeName(QFileInfo(path).path());
    if (::lstat(QFile::encodeName(path).constData(), &file) != 0
        || ::stat(folderPath.constData(), &folder) != 0) {
        return false;
    }
    const uid_t user = ::geteuid();
    return (folder.st_mode & S_ISVTX) == 0 || user == 0 || user == file.st_uid
           || user == folder.st_uid;
}

/// What a file held before it is written. It keeps a second name for the former file where it can, so
/// that putting it back takes no room on a disk that is full.
class FormerFile
{
public:
    explicit FormerFile(const QFileInfo &entry)
        : m_path(entry.canonicalFilePath())
        , m_keptPath(QFileInfo(m_path).path() + QLatin1String("/.") + QFileInfo(m_path).fileName()
                     + QLatin1String(".former-")
                     + QString::number(QCoreApplication::applicationPid()))
        , m_content(contentOf(m_path))
    {
        std::error_code error;
        std::filesystem::remove(systemPath(m_keptPath), error);
        if (!isNameRemovable(m_path)) {
            return;
        }
        std::filesystem::create_hard_link(systemPath(m_path), systemPath(m_keptPath), error);
        m_isKept = !error;
    }

    ~FormerFile()
    {
        std::error_code error;
        if (m_isKept) {
            std::filesystem::remove(systemPath(m_keptPath), error);
        }
    }

    FormerFile(const FormerFile &) = delete;
    FormerFile &operator=(const FormerFile &) = delete;

    const QByteArray &content() const { return m_content; }

    bool putBack()
    {
        std::error_code error;
        if (m_isKept) {
            std::filesystem::rename(systemPath(m_keptPath), systemPath(m_path), error);
            m_isKept = bool(error);
            return !error;
        }
        // A place where no second name was made.
        return replaceFile(m_path, m_content);
    }

    /// Leaves the second name where it is.
    QString keep() { return std::exchange(m_isKept, false) ? m_keptPath : QString(); }

private:
    QString m_path;
    QString m_keptPath;
    QByteArray m_content;
    bool m_isKept = false;
};

QByteArray framed(const ConfigurationFile &file)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(file.root, text, QJsonDocument::Compact);
    return text;
}

void checkWritable(const ConfigurationFile &file)
{
    const QFileInfo target(file.entry.canonicalFilePath());
    if (!target.isWritable() || !QFileInfo(target.path()).isWritable()) {
        refuse(ExitCode::NoAccess, file,
               QStringLiteral("no permission to write the file or its folder"));
    }
}

/// The first value of @p former that @p latter does not hold, by its URL; empty if there is none.
QString lostValue(const Base &former, const Base &latter, const QString &url)
{
    const QString value = QStringLiteral("value");
    if (former.getProperty(value) != latter.getProperty(value)
        || former.getProperty(value).isNull() != latter.getProperty(value).isNull()) {
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

/// A text from which other values would come back than were put in must not get to the disk.
void checkKeepsValues(const ConfigurationFile &file)
{
    const auto copy = ConfigurationAndProcessDataParser().parseFromByteArray(
        framed(file), PropertyManagerConst::getConfigFileExtension());
    const QString lost = copy ? lostValue(*file.root, *copy, file.url) : file.url;
    if (!copy || !lost.isEmpty()) {
        refuse(ExitCode::Refused, file,
               QStringLiteral("'%1' cannot be written to a file without a change").arg(lost));
    }
}

[[noreturn]] void refuseBrokenWrite(const ConfigurationFile &file, FormerFile &former)
{
    if (contentOf(file.entry.filePath()) == former.content()) {
        refuse(ExitCode::InputOutputFile, file,
               QStringLiteral("could not be written and is as it was"));
    }
    if (former.putBack()) {
        refuse(ExitCode::InputOutputFile, file,
               QStringLiteral("could not be written whole; the former text was put back"));
    }
    const QString kept = former.keep();
    refuse(ExitCode::InputOutputFile, file,
           kept.isEmpty()
               ? QStringLiteral("could not be written whole, and the former text is lost")
               : QStringLiteral("could not be written whole; the former text is in %1").arg(kept));
}

QList<ConfigurationStamp> stampsOf(const ConfigurationFile &file)
{
    const auto &handler = ConfigurationModificationHandler::getInstance();
    QList<ModifiedInstanceItem> items;
    handler.getModifiedInstances(items);
    QList<ConfigurationStamp> stamps;
    for (const auto &item : std::as_const(items)) {
        stamps.append({item.instanceName, handler.getModifiedBy(file.root), item.lastModified});
    }
    return stamps;
}

} // namespace

void requireUpdatable(const ConfigurationFile &file)
{
    LogCollector::takeReasons();
    checkWritable(file);
    checkKeepsValues(file);
}

QList<ConfigurationStamp> updateFile(const ConfigurationSource &source,
                                     const ConfigurationFile &file)
{
    requireUpdatable(file);
    FormerFile former(file.entry);
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
    // Given the one file, and not its directory, the walk stamps and writes nothing else.
    ConfigurationDataAndProcessDescriptionAccess::frameConfigDir(
        file.directory, QStringLiteral("tessel"), source.objectName(), file.entry,
        file.instanceName);
    if (contentOf(file.entry.filePath()) != framed(file)) {
        refuseBrokenWrite(file, former);
    }
    return stampsOf(file);
}
