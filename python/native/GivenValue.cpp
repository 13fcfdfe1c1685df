#include "native/GivenValue.h"

#include "native/Failure.h"
#include "native/PythonValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace py = pybind11;

namespace {

/// Up to here each whole number is a double of its own.
constexpr double mostExact = 9007199254740992.0;

constexpr int bitsOfByte = 8;

bool isFloating(const QVariant &value)
{
    return value.userType() == QMetaType::Float || value.userType() == QMetaType::Double;
}

template <class Number>
QString shortest(Number number)
{
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return QString::fromLatin1(text.data(), static_cast<int>(end - text.data()));
}

bool isLess(const QVariant &left, const QVariant &right)
{
    if (isFloating(left)) {
        return left.toDouble() < right.toDouble();
    }
    const bool isUnsigned = left.userType() == QMetaType::ULongLong
                            || left.userType() == QMetaType::UInt;
    return isUnsigned ? left.toULongLong() < right.toULongLong()
                      : left.toLongLong() < right.toLongLong();
}

/// Invalid if the limit is no number of the type.
QVariant limitFor(const QVariant &value, QVariant limit)
{
    return !limit.isNull() && limit.convert(value.userType()) ? limit : QVariant();
}

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

QString shortestText(const QVariant &value)
{
    if (value.userType() == QMetaType::Float) {
        return shortest(value.toFloat());
    }
    return value.userType() == QMetaType::Double ? shortest(value.toDouble()) : value.toString();
}

QString limitProblem(const QVariant &value, const QVariant &minLimit, const QVariant &maxLimit)
{
    if (value.userType() == QMetaType::QString || value.userType() == QMetaType::Bool) {
        return {};
    }
    const QVariant least = limitFor(value, minLimit);
    if (least.isValid() && isLess(value, least)) {
        return QStringLiteral("%1 is below the lower limit, %2")
            .arg(shortestText(value), shortestText(least));
    }
    const QVariant most = limitFor(value, maxLimit);
    if (most.isValid() && isLess(most, value)) {
        return QStringLiteral("%1 is above the upper limit, %2")
            .arg(shortestText(value), shortestText(most));
    }
    return {};
}

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
    const int bits = static_cast<int>(size) * bitsOfByte;
    const qint64 most = bits >= 64 || bits < 1 ? std::numeric_limits<qint64>::max()
                                               : (qint64(1) << (bits - 1)) - 1;
    const qint64 least = -most - 1;
    const py::object number = whole(object);
    int overflow = 0;
    const qint64 value = number ? PyLong_AsLongLongAndOverflow(number.ptr(), &overflow) : 0;
    if (!number || overflow != 0 || value < least || value > most) {
        refuse(!number && !PyFloat_Check(object.ptr()),
               QStringLiteral("%1 is no %2; a whole number from %3 to %4 is")
                   .arg(shown(object), type)
                   .arg(least)
                   .arg(most));
    }
    return value;
}

QVariant GivenValue::unsignedValue(py::handle object) const
{
    const int bits = static_cast<int>(size) * bitsOfByte;
    const quint64 most = bits >= 64 || bits < 1 ? std::numeric_limits<quint64>::max()
                                                : (quint64(1) << bits) - 1;
    const py::object number = whole(object);
    const quint64 value = number ? PyLong_AsUnsignedLongLong(number.ptr()) : 0;
    // Negative, or too big for any type.
    const bool isOutside = hasRefused({PyExc_OverflowError});
    if (!number || isOutside || value > most) {
        refuse(!number && !PyFloat_Check(object.ptr()),
               QStringLiteral("%1 is no %2; a whole number from 0 to %3 is")
                   .arg(shown(object), type)
                   .arg(most));
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
