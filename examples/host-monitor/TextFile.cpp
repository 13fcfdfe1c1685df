#include "TextFile.h"

#include <QFile>

std::optional<QByteArray> readTextFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray content = file.readAll();
    // A driver may refuse the read although the file could be opened.
    return file.error() == QFileDevice::NoError ? std::make_optional(content) : std::nullopt;
}

std::optional<QString> readLine(const QString &path)
{
    const auto content = readTextFile(path);
    return content ? std::make_optional(QString::fromUtf8(*content).trimmed()) : std::nullopt;
}
