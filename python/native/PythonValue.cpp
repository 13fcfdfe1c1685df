#include "native/PythonValue.h"

#include "native/Failure.h"

#include <QVariantList>
#include <QVariantMap>

#include <algorithm>

namespace py = pybind11;

py::str pythonText(const QString &text)
{
    int order = 0;
    PyObject *const object = PyUnicode_DecodeUTF16(reinterpret_cast<const char *>(text.utf16()),
                                                   static_cast<Py_ssize_t>(text.size()) * 2,
                                                   "surrogatepass", &order);
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(object);
}

QString qtText(py::handle text)
{
    Py_ssize_t size = 0;
    const char *const bytes = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
    if (bytes == nullptr) {
        PyErr_Clear();
        throw Failure{Failure::Kind::TypeRefused,
                      QStringLiteral("a text holds half of a character (a lone surrogate)")};
    }
    return QString::fromUtf8(bytes, static_cast<int>(size));
}

py::object pythonObject(const QVariant &value)
{
    if (value.isNull() && value.userType() != QMetaType::QString) {
        return py::none();
    }
    switch (value.userType()) {
    case QMetaType::Bool: return py::bool_(value.toBool());
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Int:
    case QMetaType::LongLong: return py::int_(value.toLongLong());
    case QMetaType::UShort:
    case QMetaType::UChar:
    case QMetaType::UInt:
    case QMetaType::ULongLong: return py::int_(value.toULongLong());
    case QMetaType::Float:
    case QMetaType::Double: return py::float_(value.toDouble());
    default: break;
    }
    if (value.userType() == QMetaType::QVariantList || value.userType() == QMetaType::QStringList) {
        py::list items;
        const QVariantList list = value.toList();
        for (const auto &item : list) {
            items.append(pythonObject(item));
        }
        return std::move(items);
    }
    if (value.userType() == QMetaType::QVariantMap) {
        py::dict members;
        const QVariantMap map = value.toMap();
        for (auto member = map.cbegin(); member != map.cend(); ++member) {
            members[pythonText(member.key())] = pythonObject(member.value());
        }
        return std::move(members);
    }
    return pythonText(value.toString());
}

py::object pythonContent(const ProcessValue &value)
{
    return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
               ? pythonObject(value.getValue())
               : py::none();
}
