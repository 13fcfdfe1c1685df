#pragma once

#include "configuration/ConfigurationSource.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

/// What an element, or a column of an array, says of its values.
struct ConfigurationValueRules
{
    QString type;
    /// QMetaType::Type; 0 for an array and for an unknown type name.
    int metaType = 0;
    QStringList selectionList;
    /// Invalid where there is none.
    QVariant minLimit;
    QVariant maxLimit;
    bool isReadOnly = false;

    bool isNumber() const;
    bool isSelector() const;
};

ConfigurationValueRules rulesOf(const ConfigurationLeaf &leaf);
/// The rules of a column, from its description.
ConfigurationValueRules rulesOf(const QVariantMap &description);

/// Values of a configuration as text, and text as values.

/// True for a number or selector in which nothing has been entered.
bool isNoInput(const QVariant &value, const ConfigurationValueRules &rules);
/// Empty for a value that was not entered; the text of a selector's list where it names one entry
/// alone. Reads back as the same value.
QString configurationText(const QVariant &value, const ConfigurationValueRules &rules);
/// As JSON; the value of a selector is its index.
QString configurationJson(const QVariant &value);

/// The value that @p text means under the rules. A Failure of Refused, which begins with @p place,
/// if it means none there or lies outside the limits.
QVariant configurationValue(const QString &text, const ConfigurationValueRules &rules,
                            const QString &place);
/// Refuses where the mark of "nothing entered" has no place.
void checkTakesNoInput(const ConfigurationValueRules &rules, const QString &place);
/// A value as it stands in the list of an array's cells, from which it comes back unchanged.
QVariant asCell(const QVariant &value, const ConfigurationValueRules &rules);
