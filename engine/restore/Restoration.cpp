#include "engine/restore/Restoration.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <utility>

namespace krl::engine {
namespace {

RestorationRequest forced(RestorationRequest request) {
    request.own.everything = request.isForced;
    return request;
}

} // namespace

Restoration::Restoration(PhoneSafe& safe, Restorer& restorer, RestorationRequest request)
    : safe_(safe), restorer_(restorer), request_(forced(std::move(request))), now_(restorer.look()),
      plan_(restorer.plan(request_.target, request_.own)) {}

void Restoration::carryOut() {
    requireFree();
    requireRoom();
    std::set<std::string> touched;
    for (const RestoreStep& step : plan_.steps) {
        touched.insert({step.file, step.newFile});
    }
    const Journal journal{
        .job = {request_.what, secondsNow(), safe_.keep(now_), safe_.keep(afterwards())},
        .number = safe_.history().count + 1,
        .touched = std::move(touched),
        .mustFinish = true,
        .undoes = request_.undoes,
        .isForced = request_.isForced};
    safe_.write(journal);
    if (endJob(safe_, restorer_, journal, Wish::Finish, JobTime::Now) == Ending::ChangedByOthers) {
        throw Failure(FailureKind::CannotBegin, "another program changed the phone meanwhile",
                      "Nothing was changed on the phone. Close the other program and try again.");
    }
}

void Restoration::requireFree() const {
    if (!plan_.isBlocked()) {
        return;
    }
    std::vector<std::string> details;
    if (plan_.catalogueInTheWay) {
        details.emplace_back("its catalogue is neither the wanted one nor one of ours");
    }
    for (const std::string& name : plan_.inTheWay) {
        details.push_back(fmt::format("\"{}\" holds something else", name));
    }
    throw Failure(
        FailureKind::ChangedByOthers,
        "others have changed the phone's ringtones since: nothing is put over them",
        "Repeat with --force to put the wanted state in their place; what is there now is "
        "kept, and \"vesk undo --force\" brings it back. Nothing was changed on the "
        "phone.",
        details);
}

/// Before anything is written down: there is no way back from what has begun.
void Restoration::requireRoom() const {
    if (!plan_.hasRoom()) {
        throw Failure(FailureKind::NoSpace,
                      fmt::format("the phone has too little space: {} are free, {} are needed",
                                  formatBytes(*plan_.freeBytes), formatBytes(plan_.spaceNeeded)),
                      "Make room on it and try again. Nothing was changed on the phone.");
    }
}

/// Files of others stay beside it.
Snapshot Restoration::afterwards() const {
    Snapshot after = request_.target;
    for (const std::string& name : plan_.left) {
        after.files.insert_or_assign(name, now_.files.at(name));
        after.hasFolder = true;
    }
    return after;
}

} // namespace krl::engine
