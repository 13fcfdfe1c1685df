#include "native/Failure.h"

#include "native/PythonValue.h"

#include <exception>
#include <utility>

#include <pybind11/pybind11.h>

namespace {

const char *exceptionName(Failure::Kind kind)
{
    switch (kind) {
    case Failure::Kind::Use: return "UseError";
    case Failure::Kind::Closed: return "ClosedError";
    case Failure::Kind::Forked: return "ForkedError";
    case Failure::Kind::UnknownUrl: return "UnknownUrlError";
    case Failure::Kind::Missing: return "MissingError";
    case Failure::Kind::Access: return "AccessError";
    case Failure::Kind::Refused: return "RefusedError";
    case Failure::Kind::TypeRefused: return "TypeRefusedError";
    case Failure::Kind::TimedOut: return "TimedOutError";
    case Failure::Kind::NotReliable: return "NotReliableError";
    case Failure::Kind::LayoutMismatch: return "LayoutMismatchError";
    case Failure::Kind::File: break;
    }
    return "FileError";
}

} // namespace

void registerFailures()
{
    pybind11::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const Failure &failure) {
            const auto type =
                pybind11::module_::import("tessel._errors").attr(exceptionName(failure.kind));
            // With its length: a zero character in a name does not end it.
            PyErr_SetObject(type.ptr(), pythonText(failure.text).ptr());
        }
    });
}
