#include "native/GivenValue.h"

#include "leaves/WritableSlot.h"
#include "native/Failure.h"
#include "native/PythonValue.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace py = pybind11;

namespace {

/// Up to here each whole number is a double of its own.
constexpr double mostExact = 9007199254740992.0;

/// What a scalar of another package, or an array without dimensions, holds, as numpy has them; else the object.
py::object scalarIn(py::handle object)
{
    const bool isPlain = PyLong_CheckExact(object.ptr()) || PyFloat_CheckExact(object.ptr())
                         || PyUnicode_CheckExact(object.ptr()) || PyBool_Check(object.ptr());
    if (!isPlain && py::hasattr(object, "dtype") && py::hasattr(object, "item")
        && py::getattr(object, "ndim", py::none()).equal(py::int_(0))) {
        return object.attr("item")();
    }
    return py::reinterpret_borrow<py::object>(object);
}

/// Whether the conversion of an object has said that it is none; what else it raised goes on its way.
bool hasRefused(std::initializer_list<PyObject *> reasons)
{
    if (PyErr_Occurred() == nullptr) {
        return false;
    }
    const bool isReason = std::any_of(reasons.begin(), reasons.end(), [](PyObject *reason) {
        return PyErr_ExceptionMatches(reason) != 0;
    });
    if (!isReason) {
        throw py::error_already_set();
    }
    PyErr_Clear();
    return true;
}

} // namespace

void GivenValue::refuse(bool isOfWrongType, const QString &reason) const
{
    throw Failure{isOfWrongType ? Failure::Kind::TypeRefused : Failure::Kind::Refused,
                  QStringLiteral("'%1': %2").arg(place, reason)};
}

/// As its own code has it; a text of many characters is cut.
QString GivenValue::shown(py::handle object) const
{
    constexpr int mostShown = 60;
    PyObject *const code = PyObject_Repr(object.ptr());
    // An integer of more than 4,300 digits has no text.
    if (hasRefused({PyExc_ValueError})) {
        return QStringLiteral("this %1").arg(QString::fromUtf8(Py_TYPE(object.ptr())->tp_name));
    }
    const QString text = qtText(py::reinterpret_steal<py::object>(code));
    return text.size() <= mostShown ? text : text.left(mostShown) + QStringLiteral("...");
}

/// The integer that it is, and of a float that has nothing behind its point.
py::object GivenValue::whole(py::handle object) const
{
    if (PyBool_Check(object.ptr())) {
        return {};
    }
    if (PyIndex_Check(object.ptr())) {
        PyObject *const index = PyNumber_Index(object.ptr());
        // An array of several numbers looks like one until it is asked.
        return hasRefused({PyExc_TypeError}) ? py::object()
                                             : py::reinterpret_steal<py::object>(index);
    }
    if (!PyFloat_Check(object.ptr())) {
        return {};
    }
    const double number = PyFloat_AsDouble(object.ptr());
    if (std::abs(number) > mostExact || std::trunc(number) != number) {
        return {};
    }
    return py::int_(static_cast<qint64>(number));
}

QVariant GivenValue::signedValue(py::handle object) const
{
    const auto range = NumberRange<qint64>::ofBytes(size);
    const py::object number = whole(object);
    int overflow = 0;
    const qint64 value = number ? PyLong_AsLongLongAndOverflow(number.ptr(), &overflow) : 0;
    if (!number || overflow != 0 || !range.has(value)) {
        refuse(!number && !PyFloat_Check(object.ptr()),
               QStringLiteral("%1 is no %2; a whole number from %3 to %4 is")
                   .arg(shown(object), type)
                   .arg(range.least)
                   .arg(range.most));
    }
    return value;
}

QVariant GivenValue::unsignedValue(py::handle object) const
{
    const auto range = NumberRange<quint64>::ofBytes(size);
    const py::object number = whole(object);
    const quint64 value = number ? PyLong_AsUnsignedLongLong(number.ptr()) : 0;
    // Negative, or too big for any type.
    const bool isOutside = hasRefused({PyExc_OverflowError});
    if (!number || isOutside || !range.has(value)) {
        refuse(!number && !PyFloat_Check(object.ptr()),
               QStringLiteral("%1 is no %2; a whole number from 0 to %3 is")
                   .arg(shown(object), type)
                   .arg(range.most));
    }
    return value;
}

QVariant GivenValue::floatingValue(py::handle object) const
{
    bool isNumber = !PyBool_Check(object.ptr()) && !PyUnicode_Check(object.ptr())
                    && !PyComplex_Check(object.ptr()) && PyNumber_Check(object.ptr()) != 0;
    double number = isNumber ? PyFloat_AsDouble(object.ptr()) : 0.0;
    if (PyErr_Occurred() != nullptr && PyErr_ExceptionMatches(PyExc_TypeError) != 0) {
        PyErr_Clear();
        isNumber = false;
    }
    // A number that is too big, or one that says itself that it is none.
    if (hasRefused({PyExc_OverflowError, PyExc_ValueError})) {
        number = std::numeric_limits<double>::quiet_NaN();
    }
    if (!isNumber || !std::isfinite(number)) {
        refuse(!isNumber, QStringLiteral("%1 is no finite number of type %2; an error state is "
                                         "written as tessel.State")
                              .arg(shown(object), type));
    }
    if (metaType == QMetaType::Double) {
        return number;
    }
    const auto single = static_cast<float>(number);
    if (!std::isfinite(single) || (single == 0.0F && number != 0.0)) {
        refuse(false, QStringLiteral("%1 does not fit a float").arg(shown(object)));
    }
    return single;
}

QVariant GivenValue::booleanValue(py::handle object) const
{
    if (PyBool_Check(object.ptr())) {
        return object.ptr() == Py_True;
    }
    const py::object number = PyIndex_Check(object.ptr()) ? whole(object) : py::object();
    const bool isBit = number && (number.equal(py::int_(0)) || number.equal(py::int_(1)));
    if (!isBit) {
        refuse(!number,
               QStringLiteral("%1 is no %2; True, False, 1 and 0 are").arg(shown(object), type));
    }
    return number.equal(py::int_(1));
}

QVariant GivenValue::textValue(py::handle object) const
{
    if (!PyUnicode_Check(object.ptr())) {
        refuse(true, QStringLiteral("%1 is no text; a string takes a str").arg(shown(object)));
    }
    const QString text = qtText(object);
    if (text.contains(QChar::Null)) {
        refuse(false, QStringLiteral("a text ends where its first zero character is"));
    }
    return text;
}

QVariant GivenValue::from(py::handle given) const
{
    const py::object object = scalarIn(given);
    switch (metaType) {
    case QMetaType::Bool: return booleanValue(object);
    case QMetaType::Int:
    case QMetaType::LongLong: return signedValue(object);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return unsignedValue(object);
    case QMetaType::Float:
    case QMetaType::Double: return floatingValue(object);
    case QMetaType::QString: return textValue(object);
    default: refuse(false, QStringLiteral("no value can be given to type '%1'").arg(type));
    }
}
