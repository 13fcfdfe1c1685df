#pragma once

#include "Companion/DirectoryVisits_p.h"
#include "Validation/CheckedDescription_p.h"

#include <QFileInfo>
#include <QHash>

#include <memory>
#include <vector>

/// An instance directory that is looked over, with all descriptions below it.
class CheckedFolder
{
public:
    using Descriptions = std::vector<std::unique_ptr<CheckedDescription>>;

    CheckedFolder(const QString &path, Findings &findings);

    const QString &path() const { return m_path; }
    /// The process descriptions, in the order of a build, each once.
    const Descriptions &processDescriptions() const { return m_processDescriptions; }

private:
    void visitFolder(const QFileInfo &folder, const QString &url);
    void visitEntry(const QFileInfo &entry, const QString &url);
    void visitFile(const QFileInfo &file, const QString &url);
    void visitDescription(const QFileInfo &file, CheckedFile::Kind kind, const QString &url);
    void checkFolderDescription(const QFileInfo &file, const QString &url);
    void checkOtherName(const QFileInfo &file, const QString &url);
    void checkNames(const QList<QFileInfo> &entries, const QString &extension, const QString &url);
    void checkPassedOver(const QFileInfo &folder, const QString &url);
    void orderAsBuild();

    QString m_path;
    Findings &m_findings;
    DirectoryVisits m_visits;
    bool m_hasDescription = false;
    /// By canonical path, to find what has two names.
    QHash<QString, QFileInfo> m_seen;
    Descriptions m_processDescriptions;
};
