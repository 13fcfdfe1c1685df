#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariant>

class Array2dDataTypeWrapper;
class SelectorUrlArrayIndex;

/// What an application does with a tree when all it holds is the root and a URL.
///
/// A null root is an ordinary input and never dereferenced. Nothing here holds state or takes a
/// lock; whoever shares a tree between threads serialises access to it.
class TESSEL_EXPORT ConfigurationAndProcessDataTools
{
public:
    /// In which elements and trees travel.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    /// What became of a write.
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    ConfigurationAndProcessDataTools() = delete;

    // Data types.
    /// Whether @p dataType names an integer or floating-point type.
    static bool isNumberType(const QString &dataType);
    /// The same by the element's `type`.
    static bool isNumberType(const ConfigurationAndProcessDataBase &element);
    /// The same by the element's `type`; false for null.
    static bool isNumberType(const BaseClassSharedPointer &element);
    /// Whether @p dataType is `selector`.
    static bool isSelectorType(const QString &dataType);
    /// The same by the element's `type`.
    static bool isSelectorType(const ConfigurationAndProcessDataBase &element);
    /// The same by the element's `type`; false for null.
    static bool isSelectorType(const BaseClassSharedPointer &element);
    /// True for the integer and floating-point variant types, whatever the variant holds.
    static bool isVariantNumber(const QVariant &value);

    // The mark of a number or selector in which nothing has been entered.
    /// A null variant of the type.
    static QVariant getNoInputValueIndicator(QMetaType::Type type);
    /// Whether @p value has a type but no content.
    static bool isNoInputValueIndicatorSet(const QVariant &value);
    /// The same for the number or selector at @p url; false for a null root or no such element.
    static bool isNoInputValueIndicatorSet(const QString &url, const BaseClassSharedPointer &root);

    // Values of configuration leaves.
    /// Invalid if there is no configuration leaf at @p url.
    static QVariant extractConfigValue(const QString &url, const BaseClassSharedPointer &root);
    /// The typed forms always store; the result is false where the value was missing or could not
    /// be converted.
    static bool extractConfigValueInt(const QString &url, const BaseClassSharedPointer &root,
                                      int &value);
    /// As extractConfigValueInt().
    static bool extractConfigValueUint(const QString &url, const BaseClassSharedPointer &root,
                                       unsigned int &value);
    /// As extractConfigValueInt().
    static bool extractConfigValueDouble(const QString &url, const BaseClassSharedPointer &root,
                                         double &value);
    /// As extractConfigValueInt().
    static bool extractConfigValueQString(const QString &url, const BaseClassSharedPointer &root,
                                          QString &value);
    /// As extractConfigValueInt(), without a conversion.
    static bool extractConfigValueQVariant(const QString &url, const BaseClassSharedPointer &root,
                                           QVariant &value);
    /// One entry of a value that is a map. @p value is left alone where there is none.
    static bool extractConfigValueFromMap(const QString &url, const QString &key,
                                          const BaseClassSharedPointer &root, QVariant &value);

    // Properties of any element.
    /// Any property of any element, also by a nested path. Invalid if there is none.
    static QVariant extractProperty(const QString &url, const QString &property,
                                    const BaseClassSharedPointer &root);
    /// The same as a list of texts, such as a `selectionList`; empty if it is none.
    static QStringList extractPropertyStringList(const QString &url, const QString &property,
                                                 const BaseClassSharedPointer &root);
    /// The element's `type`; empty if there is no element at @p url.
    static QString getDataType(const QString &url, const BaseClassSharedPointer &root);

    // Selector index and selector text. Neither looks at any element.
    /// The text under @p index, which counts from 0; empty, with a warning, outside the list.
    static QString selectionIndexToSelectionString(const int &index,
                                                   const QStringList &selectionList);
    /// The first index of the text, -1 if it is not in the list.
    static int selectionStringToSelectionIndex(const QString &selectionString,
                                               const QStringList &selectionList);

    // Checked writes. Nothing is tested but the pattern of a text element: not the limits, not the
    // read-only mark, not the type. A bool form is true where nothing is left to do, that is, also
    // where the value stood there already.
    /// Writes the value of the configuration leaf, or the array cell, at @p url, with signals.
    static SetValueStatus setConfigValueWithStatus(const QString &url,
                                                   const BaseClassSharedPointer &root,
                                                   const QVariant &value);
    /// True for the first two statuses of the form above.
    static bool setConfigValue(const QString &url, const BaseClassSharedPointer &root,
                               const QVariant &value);
    /// Without signals, and without a way to array cells.
    static SetValueStatus setConfigValueNoSignalEmitWithStatus(const QString &url,
                                                               const BaseClassSharedPointer &root,
                                                               const QVariant &value);
    /// True for the first two statuses of the form above.
    static bool setConfigValueNoSignalEmit(const QString &url, const BaseClassSharedPointer &root,
                                           const QVariant &value);
    /// Configuration leaves only. @p property may be a nested path; no pattern is applied.
    static SetValueStatus setPropertyWithStatus(const QString &url, const QString &property,
                                                const BaseClassSharedPointer &root,
                                                const QVariant &value);
    /// True for the first two statuses of the form above.
    static bool setProperty(const QString &url, const QString &property,
                            const BaseClassSharedPointer &root, const QVariant &value);
    /// False only for a text element whose pattern does not match the whole of @p value.
    static bool checkRegularExpression(const BaseClassSharedPointer &element,
                                       const QVariant &value);

    // Cells of arrays, by a URL such as `tables/calibration#3,1`.
    /// Invalid unless @p url names a cell that is there.
    static QVariant extractConfigValueWithArrayIndexUrl(const QString &url,
                                                        const BaseClassSharedPointer &root);
    /// Writes the whole array with one cell changed; the signals speak of the array.
    static SetValueStatus setConfigValueWithArrayIndexUrl(const QString &url,
                                                          BaseClassSharedPointer root,
                                                          const QVariant &value);
    /// Loads @p wrapper with the array that @p url names a cell of. False for a plain URL.
    static bool fetchArrayHandleWithIndexes(const QString &url, const BaseClassSharedPointer &root,
                                            Array2dDataTypeWrapper &wrapper,
                                            QString &urlWithoutIndex, SelectorUrlArrayIndex &index);
};
