#pragma once

#include "native/LibraryMessages.h"

#include <cxxabi.h>
#include <pybind11/pybind11.h>
#include <unistd.h>

/// Runs @p action, which takes the interpreter's lock or may lose it on its way.
///
/// A thread that wants it back when the interpreter has ended is to end too: Python unwinds it, through frames
/// that must not be left that way. It stands still instead, until the process has ended.
template <class Action>
void untilInterpreterEnds(const Action &action)
{
    try {
        action();
    } catch (abi::__forced_unwind &) {
        for (;;) {
            ::pause();
        }
    }
}

/// Gives the interpreter's lock away, and takes it back at the end.
class InterpreterRelease
{
public:
    InterpreterRelease() : m_state(PyEval_SaveThread()) { }
    ~InterpreterRelease()
    {
        untilInterpreterEnds([this] { PyEval_RestoreThread(m_state); });
    }

    InterpreterRelease(const InterpreterRelease &) = delete;
    InterpreterRelease &operator=(const InterpreterRelease &) = delete;

private:
    PyThreadState *m_state;
};

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
        ~Delivery() { untilInterpreterEnds(&LibraryMessages::deliver); }
    };
    const Delivery delivery;
    const InterpreterRelease released;
    const LibraryReasons reasons;
    return action();
}
