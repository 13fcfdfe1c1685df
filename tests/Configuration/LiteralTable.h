#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"

#include <QDebug>

/// One cell of a table by URL, as plainly as it can be put: the whole table is read, and written
/// whole where a cell changes. To compare the library's ways with.
class LiteralTable
{
public:
    using Base = ConfigurationAndProcessDataBase;
    using Root = Base::BaseClassSharedPointer;

    /// The value at @p url, be it a cell or not.
    static QVariant extractConfigValue(const QString &url, const Root &root)
    {
        QVariant result = extractCell(url, root);
        if (result.isNull()) {
            const auto leaf = root->getLeafConfigurationData(url);
            if (!leaf.isNull()) {
                result = leaf->getValue();
            }
        }
        return result;
    }

    static QVariant extractCell(const QString &url, const Root &root)
    {
        LiteralTable table;
        if (!table.load(url, root)) {
            return {};
        }
        const QVariantList cells = table.cellsOfRow();
        if (cells.isEmpty()) {
            qWarning() << "Row index out of bounds or empty row detected";
            return {};
        }
        const auto end = quint64{table.m_index.getColumnIndex()} + 1;
        if (end > static_cast<quint64>(cells.size())) {
            qWarning() << "Column index out of bounds" << cells.size() << end;
            return {};
        }
        return cells.at(static_cast<int>(end - 1));
    }

    static Base::SetValueStatus setCell(const QString &url, const Root &root, const QVariant &value)
    {
        LiteralTable table;
        if (!table.load(url, root) || !table.replaceCell(value)) {
            return Base::SetValueTargetMissing;
        }
        const auto leaf = root->getLeafConfigurationData(table.m_url);
        return leaf.isNull() ? Base::SetValueTargetMissing : leaf->setValue(QVariant(table.m_rows));
    }

private:
    bool load(const QString &url, const Root &root)
    {
        using Definitions = ConfigurationAndProcessDataDefinitions;
        SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, m_index, m_url);
        if (!m_index.isValid()
            || ConfigurationAndProcessDataTools::getDataType(m_url, root)
                   != Definitions::getKeyDataTypeArray()) {
            return false;
        }
        const Root leaf = root->getLeaf(m_url);
        const QVariant value = leaf->getProperty(Definitions::getKeyDataPropertyValue());
        const QVariant information = leaf->getProperty(
            Definitions::getKeyDataPropertyArrayInformation());
        if (!value.canConvert<QVariantList>() || !information.canConvert<QVariantList>()) {
            return false;
        }
        m_rows = value.toList();
        measure();
        if (m_sizes.size() == 1) {
            for (QVariant &row : m_rows) {
                row = QVariantList{row};
            }
            measure();
        }
        return true;
    }

    /// Along the first entry of each level.
    void measure()
    {
        m_sizes.clear();
        if (m_rows.isEmpty()) {
            return;
        }
        QVariant level = m_rows;
        while (level.userType() == QMetaType::QVariantList) {
            const QVariantList list = level.toList();
            m_sizes.append(list.size());
            level = list.value(0);
        }
    }

    QVariantList cellsOfRow() const
    {
        const bool isInside = m_sizes.size() == 2
                              && m_index.getRowIndex() < static_cast<quint32>(m_rows.size());
        return isInside ? m_rows.at(static_cast<int>(m_index.getRowIndex())).toList()
                        : QVariantList();
    }

    bool replaceCell(const QVariant &value)
    {
        QVariantList cells = cellsOfRow();
        const quint64 column = m_index.getColumnIndex();
        if (cells.isEmpty()) {
            qWarning() << "Destination row is empty, row number given" << m_index.getRowIndex()
                       << ",max row numbers in array" << m_rows.size();
            return false;
        }
        if (static_cast<quint64>(cells.size()) < column + 1) {
            qWarning() << "No valid column selections given"
                       << "given (columnOffset)" << column << "(numberOfColumns)" << 1
                       << "given number of columns in source" << 1 << "matrix type is"
                       << m_sizes.at(0) << "x" << m_sizes.at(1);
            return false;
        }
        cells[static_cast<int>(column)] = value;
        if (cells.size() != m_sizes.at(1)) {
            qWarning() << "row saving fails";
            return false;
        }
        m_rows[static_cast<int>(m_index.getRowIndex())] = cells;
        return true;
    }

    QVariantList m_rows;
    QList<int> m_sizes;
    QString m_url;
    SelectorUrlArrayIndex m_index;
};
