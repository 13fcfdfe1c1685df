#include "mirror/DescriptionBundle.h"

#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "region/DescriptionTree.h"
#include "service/Refusal.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace {

constexpr int mostNameBytes = 255;
constexpr int mostFolders = 16;

QString problemOfName(const QString &name)
{
    const QStringList parts = name.split(QLatin1Char('/'));
    const bool isSane = parts.size() <= mostFolders && name.endsWith(QLatin1String(".json"))
                        && std::all_of(name.cbegin(), name.cend(),
                                       [](QChar one) { return one.isPrint() || one.isSurrogate(); })
                        && std::all_of(parts.cbegin(), parts.cend(), [](const QString &part) {
                               return !part.isEmpty() && !part.startsWith(QLatin1Char('.'))
                                      && part.toUtf8().size() <= mostNameBytes;
                           });
    return isSane ? QString() : QStringLiteral("a file has a name that is none for a description");
}

/// A folder that goes with all it holds, unless it was kept.
class NewFolder
{
public:
    explicit NewFolder(const QString &path) : m_path(path)
    {
        if (!QDir().mkdir(path)) {
            throw Refusal{ExitCode::NoAccess,
                          QStringLiteral("%1: cannot be made; the folder around it has to be there "
                                         "and writable")
                              .arg(path)};
        }
    }
    ~NewFolder()
    {
        if (!m_isKept) {
            QDir(m_path).removeRecursively();
        }
    }
    Q_DISABLE_COPY(NewFolder)

    void write(const DescriptionBundle::File &file) const
    {
        const QString path = m_path + QLatin1Char('/') + file.name;
        QFile target(path);
        if (!QDir().mkpath(QFileInfo(path).path())
            || !target.open(QIODevice::WriteOnly | QIODevice::NewOnly)
            || target.write(file.content) != file.content.size() || !target.flush()
            || ::fsync(target.handle()) != 0) {
            throw Refusal{
                ExitCode::InputOutputFile,
                QStringLiteral("%1: cannot be written: %2").arg(path, target.errorString())};
        }
    }
    void renameTo(const QString &folder)
    {
        // Takes the place of an empty one at once, and of nothing else.
        if (::rename(QFile::encodeName(m_path).constData(), QFile::encodeName(folder).constData())
            != 0) {
            throw Refusal{ExitCode::NoAccess,
                          QStringLiteral("%1: %2; name a folder that is not there yet")
                              .arg(folder, qt_error_string(errno))};
        }
        m_isKept = true;
    }

private:
    QString m_path;
    bool m_isKept = false;
};

} // namespace

DescriptionBundle DescriptionBundle::read(const QString &path)
{
    DescriptionBundle bundle;
    bundle.isFolder = QFileInfo(path).isDir();
    QFileInfoList entries;
    if (bundle.isFolder) {
        const QString ending = PropertyManagerConst::getProcessDataDescriptionFileExtension();
        searchFilesOnPathRecursive(
            path, {QStringLiteral("*.") + ending, QStringLiteral("folder.json")}, entries);
    } else {
        entries.append(QFileInfo(path));
    }
    qint64 rest = sm_mostBytes;
    for (const auto &entry : std::as_const(entries)) {
        QFile file(entry.filePath());
        if (!file.open(QIODevice::ReadOnly)) {
            throw Refusal{
                ExitCode::NoAccess,
                QStringLiteral("%1: cannot be read: %2").arg(entry.filePath(), file.errorString())};
        }
        // One more than fits, to be told by problem().
        const QByteArray content = file.read(rest + 1);
        rest = std::max<qint64>(0, rest - content.size());
        bundle.files.append(
            {bundle.isFolder ? QDir(path).relativeFilePath(entry.filePath()) : entry.fileName(),
             content});
    }
    return bundle;
}

QString DescriptionBundle::problem() const
{
    if (files.isEmpty() || files.size() > sm_mostFiles || (!isFolder && files.size() > 1)) {
        return QStringLiteral("it has %1 files").arg(files.size());
    }
    qint64 size = 0;
    QSet<QString> names;
    for (const auto &file : files) {
        const QString reason = problemOfName(file.name);
        if (!reason.isEmpty() || (!isFolder && file.name.contains(QLatin1Char('/')))) {
            return reason.isEmpty() ? QStringLiteral("its file lies in a folder") : reason;
        }
        if (names.contains(file.name)) {
            return QStringLiteral("two files have one name");
        }
        names.insert(file.name);
        size += file.content.size();
    }
    return size > sm_mostBytes
               ? QStringLiteral("it has more than %1 bytes").arg(qint64{sm_mostBytes})
               : QString();
}

QString DescriptionBundle::write(const QString &folder, const QString &key) const
{
    const QFileInfo target(QDir::cleanPath(QDir::current().absoluteFilePath(folder)));
    const auto pathIn = [this](const QString &place) {
        return isFolder ? place : place + QLatin1Char('/') + files[0].name;
    };
    const QString place = QStringLiteral("%1/.%2-%3")
                              .arg(target.path(), target.fileName(),
                                   QUuid::createUuid().toString(QUuid::Id128));
    NewFolder made(place);
    for (const auto &file : files) {
        made.write(file);
    }
    const QString described = DescriptionTree::read(pathIn(place)).key;
    if (described != key) {
        throw Refusal{
            ExitCode::InputOutputFile,
            QStringLiteral("the source of region '%1' sends a description of region '%2'; "
                           "nothing was written")
                .arg(key, described)};
    }
    made.renameTo(target.filePath());
    // Leads there as well where a folder in front of a `..` is not there.
    return pathIn(QDir::cleanPath(folder));
}
