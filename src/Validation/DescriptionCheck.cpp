#include "Validation/DescriptionCheck.h"

#include "Validation/FolderRules_p.h"
#include "Validation/KeyRules_p.h"

#include <QSet>

#include <algorithm>

namespace {

void checkFile(const QString &path, Findings &findings)
{
    const auto kind = CheckedFile::kindOf(path);
    if (!kind) {
        const bool exists = QFileInfo::exists(path);
        findings.addWhole(exists ? Rule::FileName : Rule::Unreadable, path, {},
                          exists ? QStringLiteral("the name is not that of a description")
                                 : QStringLiteral("no such file"));
        return;
    }
    if (*kind != CheckedFile::Kind::Folder) {
        // cppcheck-suppress unreadVariable ; it looks the description over while it is made
        const CheckedDescription alone(path, *kind, {}, CheckedDescription::Layout::AsWritten,
                                       findings);
        return;
    }
    CheckedFile folder(path, *kind, {}, findings);
    if (folder.read()) {
        KeyRules::check(CheckedElement(folder, folder.root(), {}));
    }
}

} // namespace

QVector<DescriptionProblem> DescriptionCheck::check(const QStringList &paths)
{
    Findings findings;
    std::vector<std::unique_ptr<CheckedFolder>> folders;
    QSet<QString> seen;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        const QString canonicalPath = info.canonicalFilePath();
        if (!canonicalPath.isEmpty() && seen.contains(canonicalPath)) {
            continue;
        }
        seen.insert(canonicalPath);
        if (info.isDir()) {
            folders.push_back(std::make_unique<CheckedFolder>(path, findings));
            FolderRules::check(*folders.back());
        } else {
            checkFile(path, findings);
        }
    }
    FolderRules::checkKeys(folders);
    return findings.inOrder();
}

QVector<DescriptionRule> DescriptionCheck::getRules()
{
    QVector<DescriptionRule> rules = ruleTable();
    std::sort(rules.begin(), rules.end(),
              [](const DescriptionRule &left, const DescriptionRule &right) {
                  return left.name < right.name;
              });
    return rules;
}
