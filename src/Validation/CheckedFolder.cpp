#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Validation/CheckedFolder_p.h"
#include "Validation/KeyRules_p.h"
#include "Validation/NameInTree_p.h"
#include "Validation/ValueShown_p.h"

#include <QDir>

#include <algorithm>

namespace {

using Constants = PropertyManagerConst;

} // namespace

CheckedFolder::CheckedFolder(const QString &path, Findings &findings)
    : m_path(QDir::cleanPath(path))
    , m_findings(findings)
{
    visitEntry(QFileInfo(m_path), {});
    orderAsBuild();
    if (!m_hasDescription) {
        m_findings.addWhole(Rule::NoDescriptions, m_path, {},
                            QStringLiteral("no name below the folder ends in .%1 or .%2")
                                .arg(Constants::getConfigFileExtension(),
                                     Constants::getProcessDataDescriptionFileExtension()));
    }
}

void CheckedFolder::visitFolder(const QFileInfo &folder, const QString &url)
{
    const QList<QFileInfo> entries = DirectoryWalk::entriesOf(folder);
    checkNames(entries, Constants::getConfigFileExtension(), url);
    checkNames(entries, Constants::getProcessDataDescriptionFileExtension(), url);
    for (const QFileInfo &entry : entries) {
        visitEntry(entry, entry.isDir() ? CheckedFile::childUrl(url, entry.fileName()) : url);
    }
    checkPassedOver(folder, url);
}

void CheckedFolder::visitEntry(const QFileInfo &entry, const QString &url)
{
    if (!entry.isDir()) {
        visitFile(entry, url);
    } else if (m_visits.enter(entry)) {
        visitFolder(entry, url);
        m_visits.leave();
    } else {
        m_findings.addWhole(Rule::FolderPassedOver, entry.filePath(), url,
                            QStringLiteral("the link leads to %1, which has another place")
                                .arg(quoted(entry.symLinkTarget())));
    }
}

void CheckedFolder::visitFile(const QFileInfo &file, const QString &url)
{
    const auto kind = CheckedFile::kindOf(file.fileName());
    if (!kind) {
        checkOtherName(file, url);
    } else if (*kind == CheckedFile::Kind::Folder) {
        checkFolderDescription(file, url);
    } else {
        visitDescription(file, *kind, CheckedFile::childUrl(url, DirectoryWalk::stemOf(file)));
    }
}

void CheckedFolder::visitDescription(const QFileInfo &file, CheckedFile::Kind kind,
                                     const QString &url)
{
    m_hasDescription = true;
    const QFileInfo former = m_seen.value(file.canonicalFilePath());
    if (former.exists()) {
        const bool isLink = file.isSymLink();
        m_findings.addWhole(Rule::LinkTwice, isLink ? file.filePath() : former.filePath(), url,
                            QStringLiteral("%1 is the same file")
                                .arg(quoted(isLink ? former.filePath() : file.filePath())));
        return;
    }
    m_seen.insert(file.canonicalFilePath(), file);
    auto description = std::make_unique<CheckedDescription>(
        file.filePath(), kind, url, CheckedDescription::Layout::ByBuild, m_findings);
    if (kind == CheckedFile::Kind::Process) {
        m_processDescriptions.push_back(std::move(description));
    }
}

void CheckedFolder::checkFolderDescription(const QFileInfo &file, const QString &url)
{
    CheckedFile description(file.filePath(), CheckedFile::Kind::Folder, url, m_findings);
    if (description.read()) {
        KeyRules::check(CheckedElement(description, description.root(), url));
    }
}

/// The walks take whatever ends in a postfix, the parser only what has a name before it.
void CheckedFolder::checkOtherName(const QFileInfo &file, const QString &url)
{
    const QString name = file.fileName();
    if (name.endsWith(Constants::getConfigFileExtension())
        || name.endsWith(Constants::getProcessDataDescriptionFileExtension())) {
        m_findings.addWhole(
            Rule::FileName, file.filePath(), url,
            QStringLiteral("the name needs something and a dot before its postfix"));
    } else if (name.endsWith(QLatin1String(".json"))) {
        m_findings.addWhole(
            Rule::FileIgnored, file.filePath(), url,
            QStringLiteral("%1 is not the name of a description").arg(quoted(name)));
    }
}

void CheckedFolder::checkNames(const QList<QFileInfo> &entries, const QString &extension,
                               const QString &url)
{
    QHash<QString, QFileInfo> named;
    for (const QFileInfo &entry : entries) {
        const QString name = nameInTree(entry, extension);
        if (name.isEmpty()) {
            continue;
        }
        const auto replaced = named.constFind(name);
        if (replaced != named.cend()) {
            m_findings.addWhole(Rule::NamesReplace, replaced->filePath(),
                                CheckedFile::childUrl(url, name),
                                QStringLiteral("%1 has the name '%2' as well, and replaces it")
                                    .arg(quoted(entry.fileName()), name));
        }
        named.insert(name, entry);
    }
}

/// What a listing of files and folders leaves out: links to nothing, and what is neither.
void CheckedFolder::checkPassedOver(const QFileInfo &folder, const QString &url)
{
    const QFileInfoList others = QDir(folder.filePath()).entryInfoList(QDir::System, QDir::Name);
    for (const QFileInfo &entry : others) {
        if (entry.isFile() || entry.isDir()) {
            continue;
        }
        if (entry.isSymLink() && !entry.exists()) {
            m_findings.addWhole(
                Rule::LinkNowhere, entry.filePath(), url,
                QStringLiteral("there is no %1").arg(quoted(entry.symLinkTarget())));
        } else if (CheckedFile::kindOf(entry.fileName())) {
            m_findings.addWhole(Rule::NotRegular, entry.filePath(), url,
                                QStringLiteral("neither a regular file nor a link to one"));
        }
    }
}

void CheckedFolder::orderAsBuild()
{
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(
        m_path, {QStringLiteral("*.") + Constants::getProcessDataDescriptionFileExtension()},
        files);
    QHash<QString, int> places;
    for (const QFileInfo &file : qAsConst(files)) {
        const QString path = file.canonicalFilePath();
        if (!places.contains(path)) {
            places.insert(path, places.size());
        }
    }
    const auto placeOf = [&places](const std::unique_ptr<CheckedDescription> &description) {
        return places.value(QFileInfo(description->file().path()).canonicalFilePath());
    };
    std::stable_sort(
        m_processDescriptions.begin(), m_processDescriptions.end(),
        [&placeOf](const auto &left, const auto &right) { return placeOf(left) < placeOf(right); });
}
