#pragma once

#include "native/LibraryMessages.h"

#include <pybind11/pybind11.h>

/// Calls @p action without the interpreter's lock, and delivers afterwards what the library had to say.
///
/// Whatever waits, for a set, for a lock or for a disk, is called this way. The action must not touch an object
/// of Python.
template <class Action>
auto callLibrary(const Action &action)
{
    struct Delivery
    {
        Delivery() = default;
        Delivery(const Delivery &) = delete;
        Delivery &operator=(const Delivery &) = delete;
        ~Delivery() { LibraryMessages::deliver(); }
    };
    const Delivery delivery;
    const pybind11::gil_scoped_release released;
    const LibraryReasons reasons;
    return action();
}
