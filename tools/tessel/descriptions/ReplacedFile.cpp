#include "descriptions/ReplacedFile.h"

#include "Companion/FormerOwner.h"

#include <QSaveFile>

bool replaceFile(const QString &path, const QByteArray &text)
{
    QSaveFile file(path);
    // Without a buffer, whose flush could fail without a word.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
        || file.write(text) != text.size()) {
        return false;
    }
    keepFormerOwner(file.handle(), path);
    return file.commit();
}
