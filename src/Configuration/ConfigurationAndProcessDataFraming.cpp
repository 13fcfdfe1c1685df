#include "Companion/FormerOwner.h"
#include "Companion/RegularFile_p.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/FramedShape_p.h"
#include "Configuration/FramedText_p.h"

#include <QDebug>
#include <QSaveFile>

QJsonObject ConfigurationAndProcessDataParser::createJsonObject(
    const BaseClassSharedPointer &root) const
{
    QJsonObject json;
    if (root.isNull()) {
        qWarning() << "Root-Node is undefined!";
        return json;
    }
    const FramedShape shape;
    root->getContentAsQJsonObject(json);
    return json;
}

bool ConfigurationAndProcessDataParser::frameToByteArray(const BaseClassSharedPointer &root,
                                                         QByteArray &data,
                                                         QJsonDocument::JsonFormat format) const
{
    if (root.isNull()) {
        qWarning() << "Root node is undefined!";
        return false;
    }
    const FramedShape shape;
    const QByteArray text = FramedText(format).frame(*root);
    if (text.isNull()) {
        qWarning() << "Error creating Json object.";
        return false;
    }
    data = text;
    return true;
}

bool ConfigurationAndProcessDataParser::frameToFile(const BaseClassSharedPointer &root,
                                                    const QString &path) const
{
    if (root.isNull()) {
        qWarning() << "Root node is undefined!";
        return false;
    }
    QByteArray text;
    if (!frameToByteArray(root, text, QJsonDocument::Compact)) {
        qWarning() << "Error on framing Json document!";
        return false;
    }
    if (RegularFile::isSomethingElse(path)) {
        qWarning() << "Not a regular file and not written:" << path;
        return false;
    }
    QSaveFile file(path);
    // Without a buffer: QSaveFile does not notice when the flush of its buffer fails, and would
    // replace the target by an empty file on a full disk.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Unbuffered)) {
        qWarning() << "Can't open file " << file.fileName() << " IO Error: " << file.errorString();
        return false;
    }
    const bool written = file.write(text) == text.size();
    if (!written) {
        qWarning() << "Error on writing to file!" << path;
    }
    keepFormerOwner(file.handle(), path);
    // A short text is committed as well, and the result tells only whether the write was whole:
    // applications rely on both.
    if (!file.commit()) {
        qWarning() << "Error on commit file!" << path;
    }
    return written;
}
