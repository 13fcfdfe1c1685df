// The regions and what hangs on them, as Python sees them.

#include "native/Bindings.h"
#include "native/CheckedWrite.h"
#include "native/LibraryCall.h"
#include "native/OpenRegion.h"
#include "native/PythonValue.h"
#include "native/SetWait.h"
#include "native/TakenSet.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace py = pybind11;

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// A signal is looked at this often: an interrupt ends a wait in less than a person notices.
constexpr Milliseconds betweenSignals{50};

std::shared_ptr<OpenRegion> openRegion(const py::str &path, OpenRegion::Opening opening,
                                       const py::str &prefix)
{
    const QString name = qtText(path);
    const QString keyPrefix = qtText(prefix);
    return callLibrary([&] { return std::make_shared<OpenRegion>(name, opening, keyPrefix); });
}

py::object textOrNone(const QString &text)
{
    return text.isEmpty() ? py::object(py::none()) : pythonText(text);
}

py::dict descriptionOf(const Leaf &leaf)
{
    py::list choices;
    for (const auto &entry : leaf.entries) {
        choices.append(pythonText(entry));
    }
    py::dict description;
    description["url"] = pythonText(leaf.url);
    description["type"] = pythonText(leaf.type);
    description["unit"] = pythonText(leaf.unit);
    description["label"] = pythonText(leaf.label);
    description["minimum"] = pythonObject(leaf.minLimit);
    description["maximum"] = pythonObject(leaf.maxLimit);
    description["view_start"] = pythonObject(leaf.viewStart);
    description["view_end"] = pythonObject(leaf.viewEnd);
    description["read_only"] = leaf.isReadOnly;
    description["choices"] = py::tuple(choices);
    return description;
}

/// Each with its description, and with what keeps its slot from being used.
py::list leavesOf(const OpenRegion &region)
{
    py::list leaves;
    for (const auto &leaf : region.leaves()) {
        leaves.append(py::make_tuple(descriptionOf(leaf), textOrNone(leaf.slotProblem)));
    }
    return leaves;
}

QVector<int> indicesFrom(const OpenRegion &region, const py::list &places)
{
    QVector<int> indices;
    indices.reserve(static_cast<int>(places.size()));
    for (const auto &place : places) {
        const int index = place.cast<int>();
        if (index < 0 || index >= region.leaves().size()) {
            throw py::index_error("no leaf of that index");
        }
        indices.append(index);
    }
    return indices;
}

int indexIn(const OpenRegion &region, int index)
{
    return indicesFrom(region, py::list(py::make_tuple(index))).constFirst();
}

std::shared_ptr<TakenSet> readSet(OpenRegion &region, const py::list &places)
{
    const QVector<int> leaves = indicesFrom(region, places);
    return callLibrary([&] { return region.read(leaves); });
}

void publishSet(OpenRegion &region, const py::list &writes)
{
    QVector<LeafWrite> asked;
    asked.reserve(static_cast<int>(writes.size()));
    for (const auto &write : writes) {
        asked.append(write.cast<const LeafWrite &>());
    }
    callLibrary([&] { region.publish(asked); });
}

/// Comes back at the end of the bound, for a signal, and when something has happened.
SetWait::Outcome waitForSet(SetWait &wait, quint64 &seen, double bound, bool isMainThread)
{
    const auto start = Clock::now();
    for (;;) {
        const auto past = std::chrono::duration<double>(Clock::now() - start).count();
        const bool isBounded = bound >= 0;
        const double left = isBounded ? std::max(bound - past, 0.0) : 0.0;
        // A bound of years would not fit into the clock.
        const double most = isMainThread ? double(betweenSignals.count()) : 1000.0;
        const Milliseconds slice(
            static_cast<qint64>(isBounded ? std::min(std::ceil(left * 1000), most) : most));
        const auto outcome = callLibrary([&] { return wait.wait(seen, slice); });
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set();
        }
        if (outcome != SetWait::Outcome::TimedOut || (isBounded && left * 1000 <= most)) {
            return outcome;
        }
    }
}

/// The newer generation; None at the end of the bound; false once the wait has ended.
py::object outcomeObject(SetWait::Outcome outcome, quint64 seen)
{
    switch (outcome) {
    case SetWait::Outcome::NewSet: return py::int_(seen);
    case SetWait::Outcome::TimedOut: return py::none();
    case SetWait::Outcome::Ended: break;
    }
    return py::bool_(false);
}

py::tuple valueTuple(const TakenSet &set, int place)
{
    if (place < 0 || place >= set.leaves().size()) {
        throw py::index_error("no value at that place");
    }
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    callLibrary([&] { value = set.value(place); });
    return py::make_tuple(pythonContent(value), static_cast<int>(value.getErrorType()));
}

/// All at once, with the interpreter's lock held only to make the objects.
py::list valueTuples(const TakenSet &set)
{
    const auto values = callLibrary([&] { return set.values(); });
    py::list tuples;
    for (const auto &value : values) {
        tuples.append(py::make_tuple(pythonContent(value), static_cast<int>(value.getErrorType())));
    }
    return tuples;
}

/// The memory of a writable array of one dimension without gaps, of T in the number of leaves.
template <class T>
T *roomFor(const TakenSet &set, const py::buffer_info &room)
{
    if (room.readonly || room.ndim != 1 || room.itemsize != static_cast<py::ssize_t>(sizeof(T))
        || room.size != set.leaves().size()
        || (room.size > 1 && room.strides[0] != static_cast<py::ssize_t>(sizeof(T)))) {
        throw py::value_error("an array of another shape or type");
    }
    return static_cast<T *>(room.ptr);
}

void bindSets(py::module_ &module)
{
    py::class_<TakenSet, std::shared_ptr<TakenSet>>(module, "Set")
        .def_property_readonly("generation", &TakenSet::generation)
        .def("value", &valueTuple, py::arg("place"))
        .def("values", &valueTuples)
        .def(
            "fill",
            [](const TakenSet &set, const py::buffer &numbers) {
                const py::buffer_info room = numbers.request(true);
                auto *const place = roomFor<double>(set, room);
                callLibrary([&] { set.fill(place); });
            },
            py::arg("numbers"))
        .def(
            "fill_states",
            [](const TakenSet &set, const py::buffer &states) {
                const py::buffer_info room = states.request(true);
                auto *const place = roomFor<qint32>(set, room);
                callLibrary([&] { set.fillStates(place); });
            },
            py::arg("states"));
    py::class_<LeafWrite>(module, "Write");
}

void bindWaits(py::module_ &module)
{
    py::class_<SetWait, std::shared_ptr<SetWait>>(module, "Wait")
        .def(
            "wait",
            [](SetWait &wait, quint64 seen, double bound, bool isMainThread) {
                const auto outcome = waitForSet(wait, seen, bound, isMainThread);
                return outcomeObject(outcome, seen);
            },
            py::arg("seen"), py::arg("bound"), py::arg("is_main_thread"))
        .def("fileno", [](SetWait &wait) { return callLibrary([&] { return wait.descriptor(); }); })
        .def("has_descriptor", &SetWait::hasDescriptor)
        .def(
            "acknowledge",
            [](SetWait &wait, quint64 seen) {
                const auto outcome = callLibrary([&] { return wait.acknowledge(seen); });
                return outcomeObject(outcome, seen);
            },
            py::arg("seen"))
        .def("end", [](SetWait &wait) { callLibrary([&] { wait.end(); }); });
}

} // namespace

void bindRegions(py::module_ &module)
{
    bindSets(module);
    bindWaits(module);
    py::class_<OpenRegion, std::shared_ptr<OpenRegion>>(module, "Region")
        .def_property_readonly("key",
                               [](const OpenRegion &region) { return pythonText(region.key()); })
        .def("leaves", &leavesOf)
        .def("is_open",
             [](const OpenRegion &region) { return callLibrary([&] { return region.isOpen(); }); })
        .def("generation",
             [](OpenRegion &region) { return callLibrary([&] { return region.generation(); }); })
        .def("read", &readSet, py::arg("leaves"))
        .def(
            "checked_value",
            [](const OpenRegion &region, int leaf, const py::object &value, bool limits) {
                return checkedValue(region, indexIn(region, leaf), value,
                                    limits ? Limits::Checked : Limits::Ignored);
            },
            py::arg("leaf"), py::arg("value"), py::arg("limits"))
        .def(
            "checked_state",
            [](const OpenRegion &region, int leaf, int state) {
                return checkedState(region, indexIn(region, leaf), state);
            },
            py::arg("leaf"), py::arg("state"))
        .def("publish", &publishSet, py::arg("writes"))
        .def("make_wait",
             [](OpenRegion &region) { return callLibrary([&] { return region.makeWait(); }); })
        .def("close", [](OpenRegion &region) { callLibrary([&] { region.close(); }); });
    module.def(
        "attach",
        [](const py::str &path, bool isReadOnly) {
            return openRegion(path,
                              isReadOnly ? OpenRegion::Opening::AttachReadOnly
                                         : OpenRegion::Opening::Attach,
                              py::str());
        },
        py::arg("path"), py::arg("read_only"));
    module.def(
        "create",
        [](const py::str &path, const py::str &prefix) {
            return openRegion(path, OpenRegion::Opening::Create, prefix);
        },
        py::arg("path"), py::arg("prefix"));
}
