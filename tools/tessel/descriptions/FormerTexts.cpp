#include "descriptions/FormerTexts.h"

#include "descriptions/DescriptionFile.h"
#include "descriptions/ReplacedFile.h"

#include <QFile>
#include <QJsonDocument>

#include <optional>

#include <sys/stat.h>

namespace {

std::optional<QByteArray> textOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return file.readAll();
}

QByteArray requiredTextOf(const QString &path)
{
    const auto text = textOf(path);
    if (!text) {
        refusePath(ExitCode::NoAccess, path, QStringLiteral("cannot be read"));
    }
    return *text;
}

/// 0 for a file that is not there. A file that is replaced gets another number.
quint64 inodeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

bool isWhole(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).isObject();
}

bool overwrite(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)
           && file.write(text) == text.size();
}

/// On a full disk there may be no room for both texts, but for the former one alone.
bool putBack(const QString &path, const QByteArray &text)
{
    return replaceFile(path, text) || overwrite(path, text);
}

} // namespace

FormerTexts::FormerTexts(const QStringList &paths)
{
    for (const auto &path : paths) {
        m_files.append({path, requiredTextOf(path), inodeOf(path)});
    }
}

QStringList FormerTexts::rewritten() const
{
    QStringList paths;
    for (const auto &file : m_files) {
        if (inodeOf(file.path) != file.inode || textOf(file.path) != file.text) {
            paths.append(file.path);
        }
    }
    return paths;
}

FormerTexts::Restoration FormerTexts::restoreCutOff() const
{
    Restoration restoration;
    for (const auto &file : m_files) {
        const auto text = textOf(file.path);
        if (!text || *text == file.text || isWhole(*text)) {
            continue;
        }
        QStringList &paths = putBack(file.path, file.text) ? restoration.restored
                                                           : restoration.lost;
        paths.append(file.path);
    }
    return restoration;
}

QString restorationText(const FormerTexts::Restoration &restoration)
{
    const QString separator = QStringLiteral(", ");
    QStringList texts;
    if (!restoration.restored.isEmpty()) {
        texts.append(QStringLiteral("the new text could not be written whole, the former one is "
                                    "back: %1")
                         .arg(restoration.restored.join(separator)));
    }
    if (!restoration.lost.isEmpty()) {
        texts.append(QStringLiteral("neither the new text nor the former one could be written "
                                    "whole: %1")
                         .arg(restoration.lost.join(separator)));
    }
    return texts.join(QStringLiteral("; "));
}
