#include "descriptions/DescriptionFolder.h"

#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/LinkedFolders.h"
#include "text/LogCollector.h"
#include "text/Output.h"

#include <QDir>
#include <QDirIterator>
#include <QSet>

#include <algorithm>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

QString processPattern()
{
    return QStringLiteral("*.") + PropertyManagerConst::getProcessDataDescriptionFileExtension();
}

void requireReadable(const QFileInfo &folder, const QString &path)
{
    if (!folder.isReadable() || !folder.isExecutable()) {
        refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to read it"));
    }
}

void requireFolder(const QString &path)
{
    const QFileInfo folder(path);
    if (!folder.exists()) {
        refusePath(ExitCode::NotFound, path, QStringLiteral("no such folder"));
    }
    if (!folder.isDir()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no folder"));
    }
    requireReadable(folder, path);
}

/// A path such as "." or "device/.." does not show the folder's name.
QString namingPath(const QString &path)
{
    const QStringList pieces = path.split(QLatin1Char('/'));
    if (pieces.contains(QStringLiteral(".")) || pieces.contains(QStringLiteral(".."))) {
        return QFileInfo(path).canonicalFilePath();
    }
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

QFileInfoList foldersBelow(const QString &path)
{
    QFileInfoList below;
    QDirIterator folders(path, QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (folders.hasNext()) {
        folders.next();
        below.append(folders.fileInfo());
    }
    std::sort(below.begin(), below.end(), [](const QFileInfo &left, const QFileInfo &right) {
        return left.filePath() < right.filePath();
    });
    return below;
}

void noteLoop(const QString &path)
{
    writeErrorLine(
        QStringLiteral("tessel: note: %1 leads back to a folder above it and is passed over")
            .arg(path));
}

void noteOtherPlace(const QString &path)
{
    writeErrorLine(QStringLiteral("tessel: note: %1 leads to a folder that has another place here "
                                  "and is passed over")
                       .arg(path));
}

/// A file that is there under several names has its place in the region once.
QFileInfoList withoutOtherNames(const QFileInfoList &files)
{
    QSet<QString> known;
    QFileInfoList once;
    for (const auto &file : files) {
        const QString path = file.canonicalFilePath();
        if (!known.contains(path)) {
            known.insert(path);
            once.append(file);
        }
    }
    return once;
}

void requireParsed(const QString &path)
{
    LogCollector::takeReasons();
    if (!ConfigurationAndProcessDataParser().parseFromFile(path)) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be parsed: %1").arg(parseProblem(path)));
    }
}

} // namespace

DescriptionFolder::DescriptionFolder(const QString &path) : m_path(path)
{
    requireFolder(path);
    LinkedFolders links(path);
    const QFileInfoList folders = foldersBelow(path);
    for (const auto &folder : folders) {
        // The search would pass over it in silence.
        requireReadable(folder, folder.filePath());
        switch (links.wayOf(folder)) {
        case LinkedFolders::Way::LeadsBack: noteLoop(folder.filePath()); break;
        case LinkedFolders::Way::OtherPlace: noteOtherPlace(folder.filePath()); break;
        case LinkedFolders::Way::Entered: break;
        }
    }
    m_absolutePath = namingPath(path);
    searchFilesOnPathRecursive(m_absolutePath, {processPattern()}, m_files);
    m_files = withoutOtherNames(m_files);
    if (m_files.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("holds no process description; their names end in .%1")
                       .arg(PropertyManagerConst::getProcessDataDescriptionFileExtension()));
    }
    const QStringList paths = filePaths();
    for (const auto &file : paths) {
        requireDescriptionFile(file);
    }
}

QStringList DescriptionFolder::filePaths() const
{
    QStringList paths;
    for (const auto &file : m_files) {
        paths.append(file.absoluteFilePath());
    }
    return paths;
}

QString DescriptionFolder::relativePath(const QString &filePath) const
{
    return QDir(m_absolutePath).relativeFilePath(filePath);
}

BaseClassSharedPointer DescriptionFolder::parse() const
{
    LogCollector::takeReasons();
    BaseClassSharedPointer root;
    if (Access::parseProcessDir(root, QFileInfo(m_absolutePath))) {
        return root;
    }
    const QString reasons = LogCollector::takeReasons();
    // The files are asked one by one only now, as each of a device that is right would be parsed twice.
    const QStringList paths = filePaths();
    for (const auto &file : paths) {
        requireParsed(file);
    }
    refusePath(ExitCode::InputOutputFile, m_path,
               QStringLiteral("its files do not describe one memory; try 'tessel build': %1")
                   .arg(reasons));
}
