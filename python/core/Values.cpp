#include "python/core/Values.h"

#include "audio/judging/Judgement.h"
#include "engine/errors/FailureCodes.h"

namespace krl::python {

namespace py = pybind11;
using py::arg;
using py::dict;

namespace {

template <typename T>
py::object orNone(const std::optional<T>& value) {
    return value ? py::cast(*value) : py::none();
}

py::list pairs(const std::vector<std::pair<std::string, std::string>>& all) {
    py::list list;
    for (const auto& [from, to] : all) {
        list.append(py::make_tuple(text(from), text(to)));
    }
    return list;
}

dict valueOf(const engine::Operation& operation) {
    return dict(arg("kind") = engine::operationName(operation.kind),
                arg("file") = text(operation.file), arg("new_file") = text(operation.newFile),
                arg("ringtone") = text(operation.name), arg("source") = text(operation.source),
                arg("size") = operation.bytes);
}

dict valueOf(const UsedSong& song) {
    return dict(arg("path") = text(song.path.string()), arg("ringtone") = text(song.ringtone),
                arg("already_there") = song.isHeld, arg("prepared") = song.isPrepared);
}

py::tuple valueOf(const UnusableSong& song) {
    return py::make_tuple(text(song.path.string()), krl::python::valueOf(song.failure));
}

template <typename T>
py::list listOf(const std::vector<T>& all) {
    py::list list;
    for (const T& one : all) {
        list.append(valueOf(one));
    }
    return list;
}

} // namespace

py::str text(const std::string& bytes) {
    PyObject* const string = PyUnicode_DecodeUTF8(
        bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape");
    if (string == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(string);
}

py::list texts(const std::vector<std::string>& all) {
    py::list list;
    for (const std::string& one : all) {
        list.append(text(one));
    }
    return list;
}

py::tuple succeeded(const py::object& value) {
    return py::make_tuple(value, py::none());
}

py::tuple failed(const engine::Failure& failure) {
    return py::make_tuple(py::none(), valueOf(failure));
}

py::tuple valueOf(const engine::Failure& failure) {
    return py::make_tuple(engine::codeOf(failure.kind()).number, text(failure.what()),
                          text(failure.advice()), texts(failure.details()));
}

dict valueOf(const Report& report) {
    const engine::WorkProgress& progress = report.progress;
    return dict(arg("stage") = report.stage, arg("files_done") = progress.filesDone,
                arg("files_total") = progress.filesTotal, arg("bytes_done") = progress.bytesDone,
                arg("bytes_total") = progress.bytesTotal,
                arg("seconds_left") = orNone(progress.secondsLeft),
                arg("current") = text(progress.current),
                arg("fraction") = orNone(progress.fraction()));
}

dict valueOf(const engine::DeviceDescription& about) {
    return dict(arg("udid") = text(about.udid), arg("name") = text(about.name),
                arg("device_class") = text(about.deviceClass),
                arg("firmware") = text(about.firmware), arg("paired") = about.paired,
                arg("reachable") = about.reachable);
}

dict valueOf(const engine::PhoneRingtone& ringtone) {
    return dict(arg("name") = text(ringtone.name), arg("guid") = text(ringtone.guid),
                arg("file") = text(ringtone.file), arg("type") = text(ringtone.type),
                arg("size") = ringtone.size);
}

dict valueOf(const engine::RingtoneChanges& changes) {
    return dict(arg("added") = texts(changes.added), arg("removed") = texts(changes.removed),
                arg("replaced") = texts(changes.replaced), arg("renamed") = pairs(changes.renamed));
}

dict valueOf(const engine::PastJob& job) {
    return dict(arg("time") = job.time, arg("what") = text(job.what),
                arg("changes") = valueOf(job.changes), arg("undone") = job.isUndone,
                arg("before") = job.before.hex());
}

dict valueOf(const engine::ChangeDone& done) {
    return dict(
        arg("added") = done.added, arg("removed") = done.removed, arg("renamed") = done.renamed,
        arg("put_right") = done.putRight, arg("changed_anything") = done.changedAnything,
        arg("too_late_to_cancel") = done.wasTooLateToCancel, arg("had_no_lock") = done.hadNoLock,
        arg("was_put_right") = done.wasPutRight, arg("left_behind") = done.leftBehind);
}

dict valueOf(const Planned& planned) {
    const engine::Plan& plan = planned.plan;
    std::vector<std::string> names;
    for (const auto& [name, size] : plan.afterwards) {
        names.push_back(name);
    }
    return dict(
        arg("udid") = text(planned.facts.udid), arg("phone_name") = text(planned.facts.name),
        arg("firmware") = text(planned.facts.firmware),
        arg("free_bytes") = orNone(planned.facts.freeBytes), arg("added") = texts(planned.added),
        arg("removed") = texts(planned.removed), arg("renamed") = pairs(planned.renamed),
        arg("put_right") = texts(planned.putRight), arg("changes_anything") = plan.changesAnything,
        arg("operations") = plan.changesAnything ? listOf(plan.operations) : py::list(),
        arg("upload_bytes") = plan.uploadBytes, arg("space_needed") = plan.spaceNeeded,
        arg("strays") = texts(plan.strays), arg("ringtones") = texts(names),
        arg("songs") = listOf(planned.songs), arg("unusable") = listOf(planned.unusable),
        arg("skipped") = texts(planned.skipped),
        arg("unreadable_tags") = texts(planned.unreadableTags));
}

dict valueOf(const Fetch& fetch) {
    return dict(arg("ringtone") = valueOf(fetch.ringtone), arg("path") = text(fetch.path.string()),
                arg("already_there") = fetch.wasThere);
}

dict valueOf(const audio::Inspection& inspection) {
    const tags::AudioFacts& facts = inspection.facts;
    return dict(arg("size") = inspection.size,
                arg("verdict") = audio::verdictName(inspection.judgement.verdict),
                arg("reasons") = texts(inspection.judgement.reasons),
                arg("container") = text(facts.container), arg("codec") = text(facts.codec),
                arg("channels") = facts.channels, arg("sample_rate") = facts.sampleRate,
                arg("bits") = facts.bits, arg("kilobits") = facts.kilobits,
                arg("length") = static_cast<double>(facts.lengthMs) / 1000,
                arg("encrypted") = facts.encrypted, arg("title") = text(facts.title),
                arg("artist") = text(facts.artist), arg("picture_bytes") = facts.pictureBytes);
}

dict valueOf(const audio::Prepared& prepared) {
    return dict(arg("start") = prepared.startSeconds, arg("length") = prepared.lengthSeconds,
                arg("song_loudness") = prepared.songLoudness, arg("loudness") = prepared.loudness,
                arg("peak") = prepared.peak, arg("silent") = prepared.silent,
                arg("damaged_parts") = prepared.damagedParts);
}

} // namespace krl::python
