// Configurations as Python sees them.

#include "native/Bindings.h"
#include "native/Failure.h"
#include "native/LibraryCall.h"
#include "native/OpenConfiguration.h"
#include "native/PythonValue.h"

#include <memory>

namespace py = pybind11;

namespace {

[[noreturn]] void refuse(Failure::Kind kind, const QString &url, const QString &reason)
{
    throw Failure{kind, QStringLiteral("'%1': %2").arg(url, reason)};
}

/// A status that is no success as an exception; the others as their number.
int statusNumber(OpenConfiguration::SetValueStatus status, const QString &url,
                 const ConfigurationRules &rules)
{
    switch (status) {
    case ConfigurationAndProcessDataBase::SetValueChanged:
    case ConfigurationAndProcessDataBase::SetValueUnchanged: return status;
    case ConfigurationAndProcessDataBase::SetValueTargetMissing:
        refuse(Failure::Kind::UnknownUrl, url, QStringLiteral("no such element"));
    case ConfigurationAndProcessDataBase::SetValueRegularExpressionMismatch:
        refuse(
            Failure::Kind::Refused, url,
            QStringLiteral("the text does not match the regular expression %1").arg(rules.pattern));
    case ConfigurationAndProcessDataBase::SetValuePropertyPathInvalid: break;
    }
    refuse(Failure::Kind::Refused, url,
           QStringLiteral("the element has no value that could be set"));
}

void requireWritable(const QString &url, const ConfigurationRules &rules)
{
    if (rules.isReadOnly) {
        refuse(Failure::Kind::Refused, url, QStringLiteral("it is read-only"));
    }
}

int setValue(OpenConfiguration &configuration, const py::str &place, const py::object &object)
{
    const QString url = qtText(place);
    const auto rules = callLibrary([&] { return configuration.rules(url); });
    requireWritable(url, rules);
    if (rules.isArray()) {
        refuse(
            Failure::Kind::Refused, url,
            QStringLiteral("it is an array; set a cell, '%1#ROW,COLUMN', or its table").arg(url));
    }
    QVariant value = rules.valueFrom(object, url);
    if (url.contains(QLatin1Char('#'))) {
        value = rules.asCell(value);
    }
    const auto status = callLibrary([&] { return configuration.set(url, value); });
    return statusNumber(status, url, rules);
}

QVariantList rowFrom(py::handle given, const OpenConfiguration::Table &table, const QString &url,
                     int number)
{
    const py::list cells{py::reinterpret_borrow<py::object>(given)};
    if (static_cast<int>(cells.size()) != table.columns.size()) {
        refuse(Failure::Kind::Refused, url,
               QStringLiteral("row %1 has %2 cells; the array has %3 columns")
                   .arg(number)
                   .arg(cells.size())
                   .arg(table.columns.size()));
    }
    QVariantList row;
    for (int i = 0; i < table.columns.size(); ++i) {
        const auto &column = table.columns[i];
        const QString place = QStringLiteral("%1#%2,%3").arg(url).arg(number).arg(i);
        requireWritable(place, column);
        row.append(column.asCell(column.valueFrom(cells[static_cast<py::size_t>(i)], place)));
    }
    return row;
}

int setTable(OpenConfiguration &configuration, const py::str &place, const py::list &given)
{
    const QString url = qtText(place);
    const auto rules = callLibrary([&] { return configuration.rules(url); });
    requireWritable(url, rules);
    const auto table = callLibrary([&] { return configuration.table(url); });
    const int count = static_cast<int>(given.size());
    if (count < table.leastRows || (table.mostRows >= 0 && count > table.mostRows)) {
        refuse(Failure::Kind::Refused, url,
               QStringLiteral("%1 rows are too %2; the array takes %3")
                   .arg(count)
                   .arg(count < table.leastRows ? QStringLiteral("few") : QStringLiteral("many"))
                   .arg(count < table.leastRows ? table.leastRows : table.mostRows));
    }
    QVariantList rows;
    for (int i = 0; i < count; ++i) {
        const QVariantList row = rowFrom(given[static_cast<py::size_t>(i)], table, url, i);
        rows.append(table.isFlat ? row.constFirst() : QVariant(row));
    }
    const auto status = callLibrary([&] { return configuration.set(url, rows); });
    return statusNumber(status, url, rules);
}

py::dict descriptionOf(const QString &url, const ConfigurationRules &rules)
{
    py::list choices;
    for (const auto &entry : rules.selectionList) {
        choices.append(pythonText(entry));
    }
    py::dict description;
    description["url"] = pythonText(url);
    description["type"] = pythonText(rules.type);
    description["unit"] = pythonText(rules.unit);
    description["label"] = pythonText(rules.label);
    description["minimum"] = pythonObject(rules.minLimit);
    description["maximum"] = pythonObject(rules.maxLimit);
    description["view_start"] = py::none();
    description["view_end"] = py::none();
    description["read_only"] = rules.isReadOnly;
    description["choices"] = py::tuple(choices);
    return description;
}

/// Titles, types and rows.
py::tuple tableOf(const OpenConfiguration &configuration, const py::str &place)
{
    const QString url = qtText(place);
    const auto table = callLibrary([&] { return configuration.table(url); });
    py::list titles;
    py::list types;
    for (int i = 0; i < table.columns.size(); ++i) {
        titles.append(pythonText(table.titles[i]));
        types.append(pythonText(table.columns[i].type));
    }
    py::list rows;
    for (const auto &held : table.rows) {
        const QVariantList cells = held.toList();
        py::list row;
        for (int i = 0; i < cells.size(); ++i) {
            row.append(pythonObject(table.columns[i].fromCell(cells[i])));
        }
        rows.append(row);
    }
    return py::make_tuple(titles, types, rows);
}

py::list saved(OpenConfiguration &configuration)
{
    const auto stamps = callLibrary([&] { return configuration.save(); });
    py::list tuples;
    for (const auto &stamp : stamps) {
        tuples.append(py::make_tuple(pythonText(stamp.instanceName), pythonText(stamp.modifiedBy),
                                     pythonText(stamp.lastModified)));
    }
    return tuples;
}

} // namespace

void bindConfigurations(py::module_ &module)
{
    py::class_<OpenConfiguration>(module, "Config")
        .def(py::init([](const py::str &path) {
                 const QString name = qtText(path);
                 return callLibrary([&] { return std::make_unique<OpenConfiguration>(name); });
             }),
             py::arg("path"))
        .def("urls",
             [](const OpenConfiguration &configuration) {
                 py::list urls;
                 for (const auto &url : configuration.urls()) {
                     urls.append(pythonText(url));
                 }
                 return urls;
             })
        .def(
            "describe",
            [](const OpenConfiguration &configuration, const py::str &place) {
                const QString url = qtText(place);
                const auto rules = callLibrary([&] { return configuration.rules(url); });
                return descriptionOf(url, rules);
            },
            py::arg("url"))
        .def(
            "get",
            [](const OpenConfiguration &configuration, const py::str &place) {
                const QString url = qtText(place);
                return pythonObject(callLibrary([&] { return configuration.value(url); }));
            },
            py::arg("url"))
        .def("set", &setValue, py::arg("url"), py::arg("value"))
        .def("table", &tableOf, py::arg("url"))
        .def("set_table", &setTable, py::arg("url"), py::arg("rows"))
        .def("save", &saved);
}
