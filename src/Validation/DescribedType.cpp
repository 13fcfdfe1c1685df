#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Validation/DescribedType_p.h"

#include <QMetaType>

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;

DescribedType DescribedType::of(const QString &name)
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

QStringList DescribedType::names()
{
    return Definitions::getBasicDataTypeMapForProcessData().keys()
           << Definitions::getKeyDataTypeArray() << Definitions::getKeyDataTypeTreeNode();
}
