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
    /// In which elements and trees travel.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    /// What became of a write.
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    /// A copy of cells and information that knows no leaf to write back to.
    ArrayDataTypeWrapper(const QVariantList &values, const QVariantList &info);
    virtual ~ArrayDataTypeWrapper();

    /// The cells as nested lists, outermost dimension first.
    virtual QVariantList getArrayValueContent() const;
    /// The innermost list that @p navigator leads to: one index fewer than there are dimensions.
    virtual QVariantList getInnerArrayValues(const QVector<unsigned int> &navigator) const;
    /// The cell under one index for every dimension. An empty navigator is not allowed.
    virtual QVariant getCellValue(const QVector<unsigned int> &navigator) const;
    /// Size of each dimension, outermost first.
    virtual QVector<unsigned int> getArrayType() const;
    /// As getArrayType().
    virtual QVector<unsigned int> size() const;

    /// What describes the indices of a dimension.
    virtual QVariantList getArrayInfo(unsigned int dimension) const;
    /// Replaces what describes a dimension, in the working copy.
    virtual bool setArrayInfo(unsigned int dimension, const QVariantList &info);
    /// One key of these descriptions, an invalid variant where it is missing.
    virtual QVariantList getArrayInfo(unsigned int dimension, const QString &key) const;
    /// Changes one key across a dimension, all or nothing. An invalid value skips a description
    /// that lacks the key. True, without effect, for a wrong number of values.
    virtual bool setArrayInfo(unsigned int dimension, const QString &key,
                              const QVariantList &values);

    // Writing back. The information goes without signals, the cells through the checked write.
    /// Writes the information to the leaf at @p url.
    virtual SetValueStatus setArrayInfoWithStatus(const BaseClassSharedPointer &root,
                                                  const QString &url);
    /// Writes the information to @p leaf.
    virtual SetValueStatus setArrayInfoWithStatus(const BaseClassSharedPointer &leaf);
    /// Writes the cells to the leaf that resetRootObject() remembered.
    virtual SetValueStatus setArrayCellsWithStatus();
    /// Both; the information also where a pattern refuses the cells.
    virtual SetValueStatus setArrayContentTotalWithStatus();
    /// True for the first two statuses of the form with status.
    virtual bool setArrayInfo(const BaseClassSharedPointer &root, const QString &url);
    /// True for the first two statuses of the form with status.
    virtual bool setArrayInfo(const BaseClassSharedPointer &leaf);
    /// True for the first two statuses of the form with status.
    virtual bool setArrayCells();
    /// True for the first two statuses of the form with status.
    virtual bool setArrayContentTotal();

    /// As init(); wrappers of a certain shape load more.
    virtual bool reset(const QVariantList &values, const QVariantList &info);
    /// Loads from a leaf. False, and nothing loaded, if it is no array with information.
    virtual bool resetLeaf(const BaseClassSharedPointer &leaf);
    /// Loads from the leaf at @p url and remembers both for writing back.
    virtual bool resetRootObject(const BaseClassSharedPointer &root, const QString &url);

    /// Loads cells and information and measures the dimensions. Always true.
    bool init(const QVariantList &values, const QVariantList &info);
    /// Whether @p navigator leads to an innermost list.
    bool isNavigatorValid(const QVector<unsigned int> &navigator) const;
    /// Whether the wrapper has cells.
    // NOLINTNEXTLINE(google-explicit-constructor): a wrapper with cells counts as true.
    operator bool() const { return !m_arrayValueContent.isEmpty(); }

protected:
    /// Size of each dimension, outermost first; empty without cells.
    QVector<unsigned int> m_arrayType;
    /// What describes the dimensions, one list for each.
    QVariantList m_arrayInfo;
    /// The cells as nested lists.
    QVariantList m_arrayValueContent;
    /// Root for writing back; null where none is known.
    BaseClassSharedPointer m_rootObject;
    /// URL for writing back.
    QString m_leafUrl;
};
