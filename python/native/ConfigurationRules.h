#pragma once

#include "Configuration/ConfigurationDataValue.h"

#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <pybind11/pybind11.h>

/// What an element of a configuration, or a column of an array, says of its values.
struct ConfigurationRules
{
    QString type;
    int metaType = 0; ///< 0 for an array and for an unknown type name
    QString unit;
    QString label;
    QString pattern; ///< the regular expression of a text
    QStringList selectionList;
    QVariant minLimit; ///< invalid where there is none
    QVariant maxLimit;
    bool isReadOnly = false;

    static ConfigurationRules of(const ConfigurationDataValue &element);
    /// Of a column, from its description.
    static ConfigurationRules of(const QVariantMap &description);

    bool isNumber() const;
    bool isSelector() const;
    bool isArray() const;

    /// The value that an object of Python means, by the checks of `tessel config set`; None is "nothing
    /// entered". A Failure begins with @p place. Needs the interpreter's lock.
    QVariant valueFrom(pybind11::handle object, const QString &place) const;
    /// A value as it stands in the list of an array's cells, from which it comes back unchanged.
    QVariant asCell(const QVariant &value) const;
    /// A cell in the type that its column has.
    QVariant fromCell(const QVariant &cell) const;

private:
    QVariant uncheckedValue(pybind11::handle object, const QString &place) const;
    QVariant selectedIndex(pybind11::handle object, const QString &place) const;
};
