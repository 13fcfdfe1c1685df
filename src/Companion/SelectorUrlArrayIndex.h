#pragma once

#include "Companion/TesselExport.h"

#include <QString>

/// The row and column of one array cell, as a URL carries them: `path/to/array#row,column`.
///
/// Both indices are decimal and count from 0. Only a text that ends in exactly this form carries
/// an index; `a#b`, `a#1` and `x[1]` are plain URLs. So that each cell has one written form, an
/// index has ASCII digits only, no sign, no blank and no leading zero. A text whose index does not
/// fit 32 bits, or that has nothing before the `#`, is a plain URL as well. The last `#` counts.
class TESSEL_EXPORT SelectorUrlArrayIndex
{
public:
    /// An index that is not valid.
    SelectorUrlArrayIndex() = default;

    /// Takes a URL apart. A plain URL is delivered whole, with an index that is not valid; what
    /// @p index held before is gone. @p urlWithoutIndex may be the same object as @p url.
    static void splitUrlAndArrayIndex(const QString &url, SelectorUrlArrayIndex &index,
                                      QString &urlWithoutIndex);

    /// False when the URL carried no index.
    bool isValid() const { return m_isValid; }
    /// Counts from 0; 0 as well if the index is not valid.
    quint32 getRowIndex() const { return m_rowIndex; }
    /// Counts from 0; 0 as well if the index is not valid.
    quint32 getColumnIndex() const { return m_columnIndex; }

private:
    quint32 m_rowIndex = 0;
    quint32 m_columnIndex = 0;
    bool m_isValid = false;
};
