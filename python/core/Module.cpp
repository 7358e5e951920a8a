// The extension module krlvesk._core. The package beside it is what people import.

#include "engine/errors/FailureCodes.h"
#include "engine/values/Text.h"
#include "python/core/Calls.h"
#include "python/core/Songs.h"
#include "python/core/Values.h"
#include "python/core/WithoutLock.h"

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace py = pybind11;
using namespace krl::python;
using krl::engine::FailureKind;
using py::arg;

namespace {

using Texts = std::vector<std::string>;

WantedChange wantedOf(const std::vector<std::pair<std::string, std::optional<std::string>>>& songs,
                      const Texts& removed,
                      const std::vector<std::pair<std::string, std::string>>& renamed,
                      const std::optional<std::string>& folder) {
    WantedChange wanted;
    for (const auto& [path, name] : songs) {
        wanted.songs.push_back({path, name});
    }
    wanted.removed = removed;
    wanted.renamed = renamed;
    wanted.folder = folder;
    return wanted;
}

/// What a call comes to that may fail.
template <typename Call>
py::tuple outcomeOf(Call call) {
    try {
        return succeeded(call());
    } catch (const krl::engine::Failure& failure) {
        return failed(failure);
    }
}

py::list newsOf(Hub& hub) {
    py::list list;
    for (const auto& [arrived, device] : hub.takeNews()) {
        list.append(py::make_tuple(arrived, valueOf(device.description)));
    }
    return list;
}

/// The report that has not been heard, or None.
py::object reportOf(Job& job) {
    const auto report = job.unheard();
    return report ? py::object(valueOf(*report)) : py::none();
}

py::list failureCodes() {
    py::list list;
    for (int kind = 0; kind <= static_cast<int>(FailureKind::Cancelled); ++kind) {
        const auto [number, name] = krl::engine::codeOf(static_cast<FailureKind>(kind));
        list.append(py::make_tuple(number, name));
    }
    return list;
}

void defineHub(py::module_& m) {
    py::class_<Hub, std::shared_ptr<Hub>>(m, "Hub")
        .def("descriptor", &Hub::descriptor)
        .def("news", &newsOf)
        .def("take_bell", &Hub::takeBell)
        .def("ring", &Hub::ring)
        .def("is_closed", &Hub::isClosed)
        .def("close", &Hub::close, py::call_guard<WithoutLock>())
        .def("find", &find, arg("text"), arg("seconds"))
        .def("info", &info, arg("udid"))
        .def("ringtones", &ringtones, arg("udid"))
        .def("history", &history, arg("udid"))
        .def(
            "fetch",
            [](Hub& hub, const std::string& udid, const std::optional<Texts>& names,
               const std::string& folder, bool replaces) {
                return fetchAll(hub, udid, {names, folder, replaces});
            },
            arg("udid"), arg("names"), arg("folder"), arg("replace"))
        .def("plan", &planOf, arg("change"))
        .def("sync", &syncOf, arg("change"))
        .def("undo", &undo, arg("udid"), arg("force"))
        .def("go_back", &goBack, arg("udid"), arg("before"))
        .def("pair", &pair, arg("udid"))
        .def("unpair", &unpair, arg("udid"));
}

void defineJob(py::module_& m) {
    py::class_<Job, std::shared_ptr<Job>>(m, "Job")
        .def("wait", &Job::wait)
        .def("listen", &Job::listen)
        .def("report", &reportOf)
        .def("heard", &Job::heard)
        .def("is_done", &Job::isDone)
        .def("outcome", &Job::outcome)
        .def("cancel", &Job::cancel);
    m.def("begin_hearing", &beginHearing);
    m.def("end_hearing", &endHearing);
}

void defineChange(py::module_& m) {
    py::class_<ChangeOfPhone, std::shared_ptr<ChangeOfPhone>>(m, "Change")
        .def(py::init([](const std::string& udid,
                         const std::vector<std::pair<std::string, std::optional<std::string>>>& add,
                         const Texts& remove,
                         const std::vector<std::pair<std::string, std::string>>& rename,
                         const std::optional<std::string>& folder, bool whole, bool recursive,
                         bool yes, bool replace, bool force, bool rebuild, bool backup,
                         bool prepare) {
                 WantedChange wanted = wantedOf(add, remove, rename, folder);
                 wanted.isWhole = whole;
                 wanted.isRecursive = recursive;
                 wanted.isConsented = yes;
                 wanted.replaces = replace;
                 wanted.isForced = force;
                 wanted.rebuilds = rebuild;
                 wanted.keeps = backup;
                 wanted.recipe.treatment =
                     prepare ? krl::audio::Treatment::Prepare : krl::audio::Treatment::AsIs;
                 return std::make_shared<ChangeOfPhone>(udid, std::move(wanted));
             }),
             arg("udid"), py::kw_only(), arg("add"), arg("remove"), arg("rename"), arg("folder"),
             arg("whole"), arg("recursive"), arg("yes"), arg("replace"), arg("force"),
             arg("rebuild"), arg("backup"), arg("prepare"));
}

void defineSongs(py::module_& m) {
    m.def(
        "inspect", [](const std::string& path) { return outcomeOf([&] { return inspect(path); }); },
        arg("path"));
    m.def("seconds", &seconds, arg("text"));
    m.def(
        "prepare",
        [](const std::string& song, const std::string& place, std::optional<double> start,
           double length, double fadeIn, double fadeOut, bool level, const std::string& title,
           const std::string& artist, bool replace) {
            const krl::audio::Wish wish{.startSeconds = start.value_or(0),
                                        .lengthSeconds = length,
                                        .fadeInSeconds = fadeIn,
                                        .fadeOutSeconds = fadeOut,
                                        .automatic = !start,
                                        .level = level,
                                        .title = title,
                                        .artist = artist};
            return outcomeOf([&] { return prepare(song, place, wish, replace); });
        },
        arg("song"), arg("place"), py::kw_only(), arg("start"), arg("length"), arg("fade_in"),
        arg("fade_out"), arg("level"), arg("title"), arg("artist"), arg("replace"));
}

} // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "The engine of KRLVesk, for the package krlvesk.";
    m.attr("version") = KRL_VERSION;
    m.def("open", [] { return outcomeOf([] { return py::cast(Hub::open()); }); });
    m.def("failure_codes", &failureCodes);
    m.def("printable", &krl::engine::forTerminal, arg("text"));
    m.def("size_text", &krl::engine::formatBytes, arg("size"));
    defineHub(m);
    defineJob(m);
    defineChange(m);
    defineSongs(m);
    WithoutLock::prepare();
    py::module_::import("atexit").attr("register")(py::cpp_function(&Hub::closeAtExit));
}
