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
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    ConfigurationAndProcessDataTools() = delete;

    // Data types.
    static bool isNumberType(const QString &dataType);
    static bool isNumberType(const ConfigurationAndProcessDataBase &element);
    static bool isNumberType(const BaseClassSharedPointer &element);
    static bool isSelectorType(const QString &dataType);
    static bool isSelectorType(const ConfigurationAndProcessDataBase &element);
    static bool isSelectorType(const BaseClassSharedPointer &element);
    /// True for the integer and floating-point variant types, whatever the variant holds.
    static bool isVariantNumber(const QVariant &value);

    // The mark of a number or selector in which nothing has been entered.
    static QVariant getNoInputValueIndicator(QMetaType::Type type);
    static bool isNoInputValueIndicatorSet(const QVariant &value);
    static bool isNoInputValueIndicatorSet(const QString &url, const BaseClassSharedPointer &root);

    // Values of configuration leaves.
    /// Invalid if there is no configuration leaf at @p url.
    static QVariant extractConfigValue(const QString &url, const BaseClassSharedPointer &root);
    /// The typed forms always store; the result is false where the value was missing or could not
    /// be converted.
    static bool extractConfigValueInt(const QString &url, const BaseClassSharedPointer &root,
                                      int &value);
    static bool extractConfigValueUint(const QString &url, const BaseClassSharedPointer &root,
                                       unsigned int &value);
    static bool extractConfigValueDouble(const QString &url, const BaseClassSharedPointer &root,
                                         double &value);
    static bool extractConfigValueQString(const QString &url, const BaseClassSharedPointer &root,
                                          QString &value);
    static bool extractConfigValueQVariant(const QString &url, const BaseClassSharedPointer &root,
                                           QVariant &value);
    /// One entry of a value that is a map. @p value is left alone where there is none.
    static bool extractConfigValueFromMap(const QString &url, const QString &key,
                                          const BaseClassSharedPointer &root, QVariant &value);

    // Properties of any element.
    static QVariant extractProperty(const QString &url, const QString &property,
                                    const BaseClassSharedPointer &root);
    static QStringList extractPropertyStringList(const QString &url, const QString &property,
                                                 const BaseClassSharedPointer &root);
    static QString getDataType(const QString &url, const BaseClassSharedPointer &root);

    // Selector index and selector text. Neither looks at any element.
    static QString selectionIndexToSelectionString(const int &index,
                                                   const QStringList &selectionList);
    /// The first index of the text, -1 if it is not in the list.
    static int selectionStringToSelectionIndex(const QString &selectionString,
                                               const QStringList &selectionList);

    // Checked writes. Nothing is tested but the pattern of a text element: not the limits, not the
    // read-only mark, not the type. A bool form is true where nothing is left to do, that is, also
    // where the value stood there already.
    static SetValueStatus setConfigValueWithStatus(const QString &url,
                                                   const BaseClassSharedPointer &root,
                                                   const QVariant &value);
    static bool setConfigValue(const QString &url, const BaseClassSharedPointer &root,
                               const QVariant &value);
    /// Without signals, and without a way to array cells.
    static SetValueStatus setConfigValueNoSignalEmitWithStatus(const QString &url,
                                                               const BaseClassSharedPointer &root,
                                                               const QVariant &value);
    static bool setConfigValueNoSignalEmit(const QString &url, const BaseClassSharedPointer &root,
                                           const QVariant &value);
    /// Configuration leaves only. @p property may be a nested path; no pattern is applied.
    static SetValueStatus setPropertyWithStatus(const QString &url, const QString &property,
                                                const BaseClassSharedPointer &root,
                                                const QVariant &value);
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
