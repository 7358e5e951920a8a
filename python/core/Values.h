#pragma once

#include "audio/judging/Inspector.h"
#include "audio/preparing/Preparer.h"
#include "engine/jobs/ChangeNotes.h"
#include "engine/jobs/PhoneJobs.h"
#include "engine/phones/Device.h"
#include "engine/restore/RingtoneChanges.h"
#include "engine/state/PhoneState.h"
#include "python/core/Changes.h"
#include "python/core/Fetches.h"
#include "python/core/Job.h"

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace krl::python {

// The engine's values as Python's: dictionaries, of which the package makes its own classes. With
// Python's lock.

/// Text of a phone, a file or a message; bytes that are no UTF-8 as Python has them in names of files.
pybind11::str text(const std::string& bytes);

pybind11::list texts(const std::vector<std::string>& all);

// What comes of a call that may fail: a value and None, or None and what the package makes its exception
// of. An exception of the package's own is not raised here: that calls functions of Python.

pybind11::tuple succeeded(const pybind11::object& value);
pybind11::tuple failed(const engine::Failure& failure);

pybind11::tuple valueOf(const engine::Failure& failure);

pybind11::dict valueOf(const Report& report);
pybind11::dict valueOf(const engine::DeviceDescription& about);
pybind11::dict valueOf(const engine::PhoneRingtone& ringtone);
pybind11::dict valueOf(const engine::RingtoneChanges& changes);
pybind11::dict valueOf(const engine::PastJob& job);
pybind11::dict valueOf(const engine::ChangeDone& done);
pybind11::dict valueOf(const Planned& planned);
pybind11::dict valueOf(const Fetch& fetch);
pybind11::dict valueOf(const audio::Inspection& inspection);
pybind11::dict valueOf(const audio::Prepared& prepared);

template <typename T>
pybind11::list valuesOf(const std::vector<T>& all) {
    pybind11::list list;
    for (const T& one : all) {
        list.append(valueOf(one));
    }
    return list;
}

} // namespace krl::python
