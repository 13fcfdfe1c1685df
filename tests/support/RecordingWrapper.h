#pragma once

#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"

#include <QStringList>

/// A wrapper that notes every call that comes through its table of virtual functions, and does what
/// the class above it does.
template <class Wrapper>
class RecordingWrapper : public Wrapper
{
public:
    using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    using Status = ConfigurationAndProcessDataBase::SetValueStatus;
    using Navigator = QVector<unsigned int>;

    using Wrapper::Wrapper;
    // What the overrides of the same names would hide.
    using Wrapper::getCellValue;
    using Wrapper::reset;

    /// Kept outside of the object, so that calls during construction would be seen as well.
    static QStringList takeCalls()
    {
        QStringList taken;
        taken.swap(calls());
        return taken;
    }

    QVariantList getArrayValueContent() const override
    {
        calls().append("getArrayValueContent()");
        return Wrapper::getArrayValueContent();
    }
    QVariantList getInnerArrayValues(const Navigator &navigator) const override
    {
        calls().append("getInnerArrayValues(" + toText(navigator) + ")");
        return Wrapper::getInnerArrayValues(navigator);
    }
    QVariant getCellValue(const Navigator &navigator) const override
    {
        calls().append("getCellValue(" + toText(navigator) + ")");
        return Wrapper::getCellValue(navigator);
    }
    QVariantList getArrayInfo(unsigned int dimension) const override
    {
        calls().append(QString("getArrayInfo(%1)").arg(dimension));
        return Wrapper::getArrayInfo(dimension);
    }
    bool setArrayInfo(unsigned int dimension, const QVariantList &info) override
    {
        calls().append(QString("setArrayInfo(%1, info)").arg(dimension));
        return Wrapper::setArrayInfo(dimension, info);
    }
    QVariantList getArrayInfo(unsigned int dimension, const QString &key) const override
    {
        calls().append(QString("getArrayInfo(%1, %2)").arg(dimension).arg(key));
        return Wrapper::getArrayInfo(dimension, key);
    }
    bool setArrayInfo(unsigned int dimension, const QString &key,
                      const QVariantList &values) override
    {
        calls().append(QString("setArrayInfo(%1, %2, values)").arg(dimension).arg(key));
        return Wrapper::setArrayInfo(dimension, key, values);
    }
    Status setArrayInfoWithStatus(const Root &root, const QString &url) override
    {
        calls().append("setArrayInfoWithStatus(root, url)");
        return Wrapper::setArrayInfoWithStatus(root, url);
    }
    Status setArrayInfoWithStatus(const Root &leaf) override
    {
        calls().append("setArrayInfoWithStatus(leaf)");
        return Wrapper::setArrayInfoWithStatus(leaf);
    }
    Status setArrayCellsWithStatus() override
    {
        calls().append("setArrayCellsWithStatus()");
        return Wrapper::setArrayCellsWithStatus();
    }
    Status setArrayContentTotalWithStatus() override
    {
        calls().append("setArrayContentTotalWithStatus()");
        return Wrapper::setArrayContentTotalWithStatus();
    }
    bool setArrayInfo(const Root &root, const QString &url) override
    {
        calls().append("setArrayInfo(root, url)");
        return Wrapper::setArrayInfo(root, url);
    }
    bool setArrayInfo(const Root &leaf) override
    {
        calls().append("setArrayInfo(leaf)");
        return Wrapper::setArrayInfo(leaf);
    }
    bool reset(const QVariantList &values, const QVariantList &info) override
    {
        calls().append("reset(values, info)");
        return Wrapper::reset(values, info);
    }
    bool resetLeaf(const Root &leaf) override
    {
        calls().append(leaf.isNull() ? "resetLeaf(null)" : "resetLeaf(leaf)");
        return Wrapper::resetLeaf(leaf);
    }
    bool resetRootObject(const Root &root, const QString &url) override
    {
        calls().append("resetRootObject(root, " + url + ")");
        return Wrapper::resetRootObject(root, url);
    }

private:
    static QStringList &calls()
    {
        static QStringList calls;
        return calls;
    }

    static QString toText(const Navigator &navigator)
    {
        QStringList indices;
        for (const unsigned int index : navigator) {
            indices.append(QString::number(index));
        }
        return indices.join(", ");
    }
};

using RecordingArray = RecordingWrapper<ArrayDataTypeWrapper>;
using RecordingTable = RecordingWrapper<Array2dDataTypeWrapper>;
