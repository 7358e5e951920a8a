#pragma once

#include <pybind11/pybind11.h>

namespace krl::python {

/// Gives Python's lock up for a scope. A thread that would take it once the program has begun to end
/// stays where it is for good: Python ends such a thread on the spot, and C++ cannot be left in that
/// way.
class WithoutLock {
public:
    WithoutLock() : state_(PyEval_SaveThread()) {}

    ~WithoutLock();

    WithoutLock(const WithoutLock&) = delete;
    WithoutLock& operator=(const WithoutLock&) = delete;

    /// To be called once, when the module is loaded.
    static void prepare();

    /// This thread ends the program: no other one comes back from now on. With Python's lock.
    static void end();

private:
    PyThreadState* const state_;
};

} // namespace krl::python
