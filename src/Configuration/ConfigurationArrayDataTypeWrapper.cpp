#include "Configuration/ConfigurationArrayDataTypeWrapper.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/HeldContainer_p.h"
#include "Configuration/WriteStatus_p.h"

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

int toIndex(unsigned int index)
{
    return static_cast<int>(index);
}

} // namespace

ArrayDataTypeWrapper::ArrayDataTypeWrapper(const QVariantList &values, const QVariantList &info)
{
    init(values, info);
}

ArrayDataTypeWrapper::~ArrayDataTypeWrapper() = default;

QVariantList ArrayDataTypeWrapper::getArrayValueContent() const
{
    return m_arrayValueContent;
}

QVariantList ArrayDataTypeWrapper::getInnerArrayValues(const QVector<unsigned int> &navigator) const
{
    if (!isNavigatorValid(navigator)) {
        return {};
    }
    QVariantList list = m_arrayValueContent;
    for (const unsigned int index : navigator) {
        // Only the first branch was measured: in ragged data another one may be shorter.
        list = list.value(toIndex(index)).toList();
    }
    return list;
}

QVariant ArrayDataTypeWrapper::getCellValue(const QVector<unsigned int> &navigator) const
{
    QVariantList list = m_arrayValueContent;
    if (m_arrayType.size() != 1) {
        QVector<unsigned int> inner = navigator;
        inner.removeLast();
        list = getInnerArrayValues(inner);
    }
    const unsigned int index = navigator.last();
    if (index < static_cast<unsigned int>(list.size())) {
        return list.at(toIndex(index));
    }
    return {};
}

QVector<unsigned int> ArrayDataTypeWrapper::getArrayType() const
{
    return m_arrayType;
}

QVector<unsigned int> ArrayDataTypeWrapper::size() const
{
    return m_arrayType;
}

QVariantList ArrayDataTypeWrapper::getArrayInfo(unsigned int dimension) const
{
    if (dimension >= static_cast<unsigned int>(m_arrayInfo.size())) {
        return {};
    }
    return m_arrayInfo.at(toIndex(dimension)).toList();
}

bool ArrayDataTypeWrapper::setArrayInfo(unsigned int dimension, const QVariantList &info)
{
    if (dimension >= static_cast<unsigned int>(m_arrayInfo.size())) {
        return false;
    }
    m_arrayInfo[toIndex(dimension)] = QVariant(info);
    return true;
}

QVariantList ArrayDataTypeWrapper::getArrayInfo(unsigned int dimension, const QString &key) const
{
    const QVariantList entries = getArrayInfo(dimension);
    QVariantList values;
    values.reserve(entries.size());
    for (const QVariant &entry : entries) {
        // A place stays for each index, also where there is nothing to say.
        values.append(entry.type() == QVariant::Map ? entry.toMap().value(key) : QVariant());
    }
    return values;
}

bool ArrayDataTypeWrapper::setArrayInfo(unsigned int dimension, const QString &key,
                                        const QVariantList &values)
{
    QVariantList entries = getArrayInfo(dimension);
    if (entries.isEmpty() || values.size() != entries.size()) {
        return true;
    }
    bool allSet = true;
    for (int i = 0; i < entries.size(); ++i) {
        QVariantMap map = entries.at(i).toMap();
        if (map.contains(key)) {
            map.insert(key, values.at(i));
            entries[i] = map;
        } else if (values.at(i).isValid()) {
            allSet = false;
        }
    }
    return allSet && setArrayInfo(dimension, entries);
}

ArrayDataTypeWrapper::SetValueStatus ArrayDataTypeWrapper::setArrayInfoWithStatus(
    const BaseClassSharedPointer &root, const QString &url)
{
    if (root.isNull()) {
        return Base::SetValueTargetMissing;
    }
    const BaseClassSharedPointer leaf = root->getLeaf(url);
    return leaf.isNull() ? Base::SetValueTargetMissing : setArrayInfoWithStatus(leaf);
}

ArrayDataTypeWrapper::SetValueStatus ArrayDataTypeWrapper::setArrayInfoWithStatus(
    const BaseClassSharedPointer &leaf)
{
    if (leaf.isNull()) {
        return Base::SetValueTargetMissing;
    }
    return leaf->setPropertyNoSignalEmit(Definitions::getKeyDataPropertyArrayInformation(),
                                         QVariant(m_arrayInfo));
}

ArrayDataTypeWrapper::SetValueStatus ArrayDataTypeWrapper::setArrayCellsWithStatus()
{
    if (m_rootObject.isNull() || m_leafUrl.isEmpty()) {
        return Base::SetValueTargetMissing;
    }
    return ConfigurationAndProcessDataTools::setConfigValueWithStatus(
        m_leafUrl, m_rootObject, QVariant(getArrayValueContent()));
}

ArrayDataTypeWrapper::SetValueStatus ArrayDataTypeWrapper::setArrayContentTotalWithStatus()
{
    if (setArrayCellsWithStatus() == Base::SetValueTargetMissing) {
        return Base::SetValueTargetMissing;
    }
    // Cells that a pattern refuses do not hold the information back.
    return setArrayInfoWithStatus(m_rootObject, m_leafUrl);
}

bool ArrayDataTypeWrapper::setArrayInfo(const BaseClassSharedPointer &root, const QString &url)
{
    return isSuccess(setArrayInfoWithStatus(root, url));
}

bool ArrayDataTypeWrapper::setArrayInfo(const BaseClassSharedPointer &leaf)
{
    return isSuccess(setArrayInfoWithStatus(leaf));
}

bool ArrayDataTypeWrapper::setArrayCells()
{
    return isSuccess(setArrayCellsWithStatus());
}

bool ArrayDataTypeWrapper::setArrayContentTotal()
{
    return isSuccess(setArrayContentTotalWithStatus());
}

bool ArrayDataTypeWrapper::reset(const QVariantList &values, const QVariantList &info)
{
    return init(values, info);
}

bool ArrayDataTypeWrapper::resetLeaf(const BaseClassSharedPointer &leaf)
{
    m_rootObject.clear();
    if (leaf.isNull()) {
        return false;
    }
    const QVariant value = leaf->getProperty(Definitions::getKeyDataPropertyValue());
    if (!value.canConvert(QMetaType::QVariantList)) {
        return false;
    }
    const QVariant info = leaf->getProperty(Definitions::getKeyDataPropertyArrayInformation());
    if (!info.canConvert(QMetaType::QVariantList)) {
        return false;
    }
    return reset(value.toList(), info.toList());
}

bool ArrayDataTypeWrapper::resetRootObject(const BaseClassSharedPointer &root, const QString &url)
{
    m_leafUrl = url;
    if (root.isNull()) {
        return false;
    }
    // Loading the leaf clears the member.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the argument may be the member.
    const BaseClassSharedPointer keptRoot = root;
    const bool isLoaded = resetLeaf(root->getLeaf(url));
    m_rootObject = keptRoot;
    return isLoaded;
}

bool ArrayDataTypeWrapper::init(const QVariantList &values, const QVariantList &info)
{
    m_arrayValueContent = values;
    m_arrayInfo = info;
    m_arrayType.clear();
    if (values.isEmpty()) {
        return true;
    }
    // Where they stand: a list that is shared, as this one is with the leaf, would be copied by
    // anything that may change it.
    const QVariantList *list = &m_arrayValueContent;
    m_arrayType.append(static_cast<unsigned int>(list->size()));
    while (!list->isEmpty() && list->constFirst().userType() == QMetaType::QVariantList) {
        list = &heldBy<QVariantList>(list->constFirst());
        m_arrayType.append(static_cast<unsigned int>(list->size()));
    }
    return true;
}

bool ArrayDataTypeWrapper::isNavigatorValid(const QVector<unsigned int> &navigator) const
{
    if (navigator.size() + 1 != m_arrayType.size()) {
        return false;
    }
    for (int i = 0; i < navigator.size(); ++i) {
        if (navigator.at(i) >= m_arrayType.at(i)) {
            return false;
        }
    }
    return true;
}
