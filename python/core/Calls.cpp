#include "python/core/Calls.h"

#include "engine/phones/Pairing.h"
#include "engine/phones/PhoneChoice.h"
#include "engine/safe/PhoneSafe.h"
#include "python/core/Values.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace krl::python {

namespace py = pybind11;
using engine::Failure;
using engine::FailureKind;
using engine::OpenPhone;
using engine::PhoneState;
using Kind = Job::Kind;

namespace {

struct Info {
    PhoneState state;
    std::optional<engine::Job> unfinished;
};

Info infoOf(const std::string& udid) {
    OpenPhone phone({.udid = udid});
    Info info{readRingtones(phone), std::nullopt};
    try {
        info.unfinished = engine::unfinishedJob(udid);
    } catch (const Failure&) {
        // A safe that cannot be read is said by those who need it.
    }
    return info;
}

using krl::python::valueOf;

py::dict valueOf(const Info& info) {
    using py::arg;
    const engine::PhoneFacts& facts = info.state.facts;
    const char* catalogue = !info.state.catalogueFile            ? "none"
                            : info.state.catalogueIsUnreadable() ? "unreadable"
                                                                 : "readable";
    return py::dict(arg("udid") = text(facts.udid), arg("name") = text(facts.name),
                    arg("device_class") = text(facts.deviceClass),
                    arg("firmware") = text(facts.firmware), arg("older_layout") = facts.olderLayout,
                    arg("free_bytes") = facts.freeBytes ? py::cast(*facts.freeBytes) : py::none(),
                    arg("catalogue") = catalogue, arg("ringtones") = info.state.ringtones.size(),
                    arg("unfinished_job") =
                        info.unfinished ? py::object(text(info.unfinished->what)) : py::none());
}

/// The value to be made of a result later.
template <typename T>
Job::Result later(T value) {
    return [value = std::move(value)] { return py::object(valueOf(value)); };
}

template <typename T>
Job::Result laterAll(std::vector<T> values) {
    return [values = std::move(values)] { return py::object(valuesOf(values)); };
}

engine::AttachedDevice deviceOf(const std::string& udid) {
    engine::Discovery discovery;
    return engine::chooseDevice(discovery, {.udid = udid});
}

} // namespace

JobRef find(Hub& hub, const std::string& text, double seconds) {
    return hub.start(Kind::Reads, [=](Job&) {
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::duration<double>(seconds));
        engine::Discovery discovery;
        return later(choosePhone(discovery, {.udid = text, .wait = wait}).description);
    });
}

JobRef info(Hub& hub, const std::string& udid) {
    return hub.start(Kind::Reads, [=](Job&) { return later(infoOf(udid)); });
}

JobRef ringtones(Hub& hub, const std::string& udid) {
    return hub.start(Kind::Reads, [=](Job&) {
        OpenPhone phone({.udid = udid});
        PhoneState state = readRingtones(phone);
        requireReadableCatalogue(state);
        std::sort(state.ringtones.begin(), state.ringtones.end(),
                  [](const auto& left, const auto& right) { return left.name < right.name; });
        return laterAll(std::move(state.ringtones));
    });
}

JobRef history(Hub& hub, const std::string& udid) {
    return hub.start(Kind::Reads, [=](Job&) { return laterAll(engine::pastJobs(udid)); });
}

JobRef fetchAll(Hub& hub, const std::string& udid, const WantedFetch& wanted) {
    return hub.start(Kind::Writes, [=](Job& job) { return laterAll(fetch(udid, wanted, job)); });
}

JobRef planOf(Hub& hub, const std::shared_ptr<ChangeOfPhone>& change) {
    return hub.start(Kind::Writes, [=](Job& job) { return later(change->plan(job)); });
}

JobRef syncOf(Hub& hub, const std::shared_ptr<ChangeOfPhone>& change) {
    return hub.start(Kind::Writes, [=](Job& job) { return later(change->sync(job)); });
}

JobRef undo(Hub& hub, const std::string& udid, bool isForced) {
    return hub.start(Kind::Writes, [=](Job& job) {
        const engine::WorkWatch watch = job.watch();
        return later(isForced ? engine::undoLastByForce(udid, watch)
                              : engine::undoLast(udid, watch));
    });
}

JobRef goBack(Hub& hub, const std::string& udid, const std::string& before) {
    return hub.start(Kind::Writes, [=](Job& job) {
        const auto digest = engine::Digest::parse(before);
        if (!digest) {
            throw Failure(FailureKind::NothingKept, "that is no state of a phone");
        }
        const engine::WorkWatch watch = job.watch();
        return later(engine::goBackTo(udid, *digest, watch));
    });
}

JobRef pair(Hub& hub, const std::string& udid) {
    return hub.start(Kind::Writes, [=](Job&) -> Job::Result {
        const bool wasPaired = engine::pair(deviceOf(udid)).wasPaired;
        return [=] { return py::object(py::bool_(!wasPaired)); };
    });
}

JobRef unpair(Hub& hub, const std::string& udid) {
    return hub.start(Kind::Writes, [=](Job&) -> Job::Result {
        const bool wasPaired = engine::unpair(deviceOf(udid));
        return [=] { return py::object(py::bool_(wasPaired)); };
    });
}

} // namespace krl::python
