#include "Companion/PropertyManagerConst.h"

#include "Companion/Lasting_p.h"

const QString &PropertyManagerConst::getConfigFileExtension()
{
    static const Lasting<QString> text(QStringLiteral("config.json"));
    return text.get();
}

const QString &PropertyManagerConst::getProcessDataDescriptionFileExtension()
{
    static const Lasting<QString> text(QStringLiteral("process.json"));
    return text.get();
}

const QString &PropertyManagerConst::getMenuFolderDescriptionFilename()
{
    static const Lasting<QString> text(QStringLiteral("folder.json"));
    return text.get();
}
