#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QString>
#include <QVariant>
#include <QVector>

/// A working copy of an array element: its cells as nested lists, and what describes its
/// dimensions.
///
/// Nothing reaches the tree before one of the operations that write back. Dimensions are measured
/// along the first entry of each level. A value owned by one caller; it logs nothing itself.
class TESSEL_EXPORT ArrayDataTypeWrapper
{
public:
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    ArrayDataTypeWrapper(const QVariantList &values, const QVariantList &info);
    virtual ~ArrayDataTypeWrapper();

    virtual QVariantList getArrayValueContent() const;
    /// The innermost list that @p navigator leads to: one index fewer than there are dimensions.
    virtual QVariantList getInnerArrayValues(const QVector<unsigned int> &navigator) const;
    /// The cell under one index for every dimension. An empty navigator is not allowed.
    virtual QVariant getCellValue(const QVector<unsigned int> &navigator) const;
    /// Size of each dimension, outermost first.
    virtual QVector<unsigned int> getArrayType() const;
    virtual QVector<unsigned int> size() const;

    /// What describes the indices of a dimension.
    virtual QVariantList getArrayInfo(unsigned int dimension) const;
    virtual bool setArrayInfo(unsigned int dimension, const QVariantList &info);
    /// One key of these descriptions, an invalid variant where it is missing.
    virtual QVariantList getArrayInfo(unsigned int dimension, const QString &key) const;
    /// Changes one key across a dimension, all or nothing. An invalid value skips a description
    /// that lacks the key. True, without effect, for a wrong number of values.
    virtual bool setArrayInfo(unsigned int dimension, const QString &key,
                              const QVariantList &values);

    // Writing back. The information goes without signals, the cells through the checked write.
    virtual SetValueStatus setArrayInfoWithStatus(const BaseClassSharedPointer &root,
                                                  const QString &url);
    virtual SetValueStatus setArrayInfoWithStatus(const BaseClassSharedPointer &leaf);
    virtual SetValueStatus setArrayCellsWithStatus();
    virtual SetValueStatus setArrayContentTotalWithStatus();
    virtual bool setArrayInfo(const BaseClassSharedPointer &root, const QString &url);
    virtual bool setArrayInfo(const BaseClassSharedPointer &leaf);
    virtual bool setArrayCells();
    virtual bool setArrayContentTotal();

    virtual bool reset(const QVariantList &values, const QVariantList &info);
    /// Loads from a leaf. False, and nothing loaded, if it is no array with information.
    virtual bool resetLeaf(const BaseClassSharedPointer &leaf);
    /// Loads from the leaf at @p url and remembers both for writing back.
    virtual bool resetRootObject(const BaseClassSharedPointer &root, const QString &url);

    bool init(const QVariantList &values, const QVariantList &info);
    bool isNavigatorValid(const QVector<unsigned int> &navigator) const;
    // NOLINTNEXTLINE(google-explicit-constructor): a wrapper with cells counts as true.
    operator bool() const { return !m_arrayValueContent.isEmpty(); }

protected:
    QVector<unsigned int> m_arrayType;
    QVariantList m_arrayInfo;
    QVariantList m_arrayValueContent;
    BaseClassSharedPointer m_rootObject;
    QString m_leafUrl;
};
