#include "descriptions/DescriptionSchema.h"

#include "text/Failure.h"

#include <QFile>
#include <QHash>

// Outside of any namespace, as the macro asks for.
static void loadResource()
{
    Q_INIT_RESOURCE(descriptions);
}

namespace {

QHash<QString, QString> titles()
{
    return {{QStringLiteral("process"), QStringLiteral("Process description of Tessel")},
            {QStringLiteral("config"), QStringLiteral("Configuration of Tessel")},
            {QStringLiteral("folder"), QStringLiteral("Folder of Tessel descriptions")}};
}

} // namespace

QStringList DescriptionSchema::names()
{
    return {QStringLiteral("process"), QStringLiteral("config"), QStringLiteral("folder")};
}

QString DescriptionSchema::text(const QString &name)
{
    loadResource();
    QFile file(QStringLiteral(":/descriptions/description.schema.json"));
    if (!file.open(QIODevice::ReadOnly)) {
        throw Failure{ExitCode::Internal, QStringLiteral("the schema is missing in this program")};
    }
    // One document for all of them: most of what they describe they have in common.
    return QString::fromUtf8(file.readAll())
        .replace(QStringLiteral("%TITLE%"), titles().value(name))
        .replace(QStringLiteral("%KIND%"), name);
}
