#pragma once

#include <QString>
#include <QVariant>

#include <pybind11/pybind11.h>

/// What an object of Python means as a value of a data type. Throws a Failure of TypeRefused or Refused, which
/// begins with the place, where it means none there. Needs the interpreter's lock.
struct GivenValue
{
    QString place; ///< a URL
    QString type;  ///< the name of the data type
    int metaType;
    quint32 size; ///< bytes that the value has room in

    /// Of a scalar of numpy, or an array without dimensions, what it holds.
    QVariant from(pybind11::handle given) const;

private:
    [[noreturn]] void refuse(bool isOfWrongType, const QString &reason) const;
    QString shown(pybind11::handle object) const;
    pybind11::object whole(pybind11::handle object) const;
    QVariant signedValue(pybind11::handle object) const;
    QVariant unsignedValue(pybind11::handle object) const;
    QVariant floatingValue(pybind11::handle object) const;
    QVariant booleanValue(pybind11::handle object) const;
    QVariant textValue(pybind11::handle object) const;
};
