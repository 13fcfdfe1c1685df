#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/Lasting_p.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Validation/DescribedType_p.h"

#include <QHash>
#include <QMetaType>

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

namespace {

DescribedType make(const QString &name)
{
    DescribedType type;
    type.metaType = Definitions::getBasicDataTypeMapForProcessData().value(name,
                                                                           QMetaType::UnknownType);
    type.slotSize = Definitions::getMapBasicDataTypeStringToSize().value(name, 0);
    type.isNode = name == Definitions::getKeyDataTypeTreeNode();
    type.isArray = name == Definitions::getKeyDataTypeArray();
    type.isText = type.metaType == QMetaType::QString;
    type.isSelector = Tools::isSelectorType(name);
    type.isNumber = Tools::isNumberType(name);
    type.isBit = type.metaType == QMetaType::Bool && name != Definitions::getKeyDataTypeBoolean();
    return type;
}

QHash<QString, DescribedType> makeAll()
{
    QHash<QString, DescribedType> types;
    const QStringList names = DescribedType::names();
    for (const QString &name : names) {
        types.insert(name, make(name));
    }
    return types;
}

} // namespace

DescribedType DescribedType::of(const QString &name)
{
    static const Lasting<QHash<QString, DescribedType>> types(makeAll());
    return types.get().value(name);
}

QStringList DescribedType::names()
{
    return Definitions::getBasicDataTypeMapForProcessData().keys()
           << Definitions::getKeyDataTypeArray() << Definitions::getKeyDataTypeTreeNode();
}
