#include "web/PageFiles.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>

namespace {

const QLatin1String folder(":/page/");

struct TypeOfEnding
{
    const char *ending;
    const char *type;
};

constexpr TypeOfEnding types[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".json", "application/json"},
    {".webmanifest", "application/manifest+json"},
};

QByteArray typeOf(const QString &name)
{
    for (const auto &row : types) {
        if (name.endsWith(QLatin1String(row.ending))) {
            return row.type;
        }
    }
    return "text/plain; charset=utf-8";
}

} // namespace

PageFiles::PageFiles()
{
    QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray content = file.readAll();
            const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Sha256);
            m_files.insert(path.mid(folder.size()).toUtf8(),
                           {typeOf(path), content, '"' + digest.toHex().left(16) + '"'});
        }
    }
}

const PageFiles::File *PageFiles::find(const QByteArray &name) const
{
    const auto found = m_files.constFind(name);
    return found == m_files.cend() ? nullptr : &*found;
}
