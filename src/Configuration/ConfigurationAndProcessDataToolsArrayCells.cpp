// Single cells of arrays by URL.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

/// False for every plain URL, for which no table need be made.
bool namesCell(const QString &url)
{
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    return index.isValid();
}

} // namespace

QVariant ConfigurationAndProcessDataTools::extractConfigValueWithArrayIndexUrl(
    const QString &url, const BaseClassSharedPointer &root)
{
    if (!namesCell(url)) {
        return {};
    }
    Array2dDataTypeWrapper wrapper{QVariantList(), QVariantList()};
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    if (!fetchArrayHandleWithIndexes(url, root, wrapper, urlWithoutIndex, index)) {
        return {};
    }
    return wrapper.getCellValue(index.getRowIndex(), index.getColumnIndex());
}

Base::SetValueStatus ConfigurationAndProcessDataTools::setConfigValueWithArrayIndexUrl(
    const QString &url, BaseClassSharedPointer root, const QVariant &value)
{
    if (!namesCell(url)) {
        return Base::SetValueTargetMissing;
    }
    Array2dDataTypeWrapper wrapper{QVariantList(), QVariantList()};
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    if (!fetchArrayHandleWithIndexes(url, root, wrapper, urlWithoutIndex, index)
        || !wrapper.setCellValue(index.getRowIndex(), index.getColumnIndex(), value)) {
        return Base::SetValueTargetMissing;
    }
    const QSharedPointer<ConfigurationDataValue> leaf = root->getLeafConfigurationData(
        urlWithoutIndex);
    return leaf.isNull() ? Base::SetValueTargetMissing
                         : leaf->setValue(QVariant(wrapper.getArrayValueContent()));
}

bool ConfigurationAndProcessDataTools::fetchArrayHandleWithIndexes(
    const QString &url, const BaseClassSharedPointer &root, Array2dDataTypeWrapper &wrapper,
    QString &urlWithoutIndex, SelectorUrlArrayIndex &index)
{
    if (root.isNull()) {
        return false;
    }
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    // The normal end for every plain URL.
    if (!index.isValid()
        || getDataType(urlWithoutIndex, root) != Definitions::getKeyDataTypeArray()) {
        return false;
    }
    return wrapper.resetRootObject(root, urlWithoutIndex);
}
