#include "Companion/PropertyManagerConst.h"

const QString &PropertyManagerConst::getConfigFileExtension()
{
    static const QString text = QStringLiteral("config.json");
    return text;
}

const QString &PropertyManagerConst::getProcessDataDescriptionFileExtension()
{
    static const QString text = QStringLiteral("process.json");
    return text;
}

const QString &PropertyManagerConst::getMenuFolderDescriptionFilename()
{
    static const QString text = QStringLiteral("folder.json");
    return text;
}
