#include "desktop/bridge/Mirror.h"

#include <algorithm>

namespace krl::desktop {
namespace {

bool isHeld(const Loss& loss, const HeldRingtones& held) {
    const auto found = held.find(loss.name);
    return found != held.end() && found->second == loss.identity;
}

/// Whether nothing of the last run would stay.
bool emptiesTheFolder(const MirrorPlan& plan, const HeldRingtones& held) {
    return !held.empty() && std::all_of(held.begin(), held.end(), [&](const auto& ringtone) {
        return plan.losses.contains({ringtone.first, ringtone.second, /*isReplaced=*/false});
    });
}

} // namespace

bool mustAsk(const MirrorPlan& plan, const MirrorTerms& terms) {
    if (!terms.isAgreed) {
        return true;
    }
    const bool isEmptied = emptiesTheFolder(plan, terms.held);
    return std::any_of(plan.losses.begin(), plan.losses.end(), [&](const Loss& loss) {
        return !terms.agreed.contains(loss) && (isEmptied || !isHeld(loss, terms.held));
    });
}

MirrorState mirrorState(const MirrorFacts& facts) {
    if (facts.isAtWork) {
        return MirrorState::AtWork;
    }
    if (facts.isPaused) {
        return MirrorState::Paused;
    }
    if (!facts.isKnownFirmware) {
        return MirrorState::Unsuitable;
    }
    if (facts.hasBrokenJob) {
        return MirrorState::Interrupted;
    }
    if (!facts.isListReadable) {
        return MirrorState::Unreadable;
    }
    if (facts.hasEdits && (facts.isDue || facts.hasQuestion)) {
        return MirrorState::WaitsForEdits;
    }
    if (facts.hasQuestion) {
        return MirrorState::Asks;
    }
    if (facts.hasFailed) {
        return MirrorState::Failed;
    }
    return facts.isDue ? MirrorState::Due : MirrorState::UpToDate;
}

} // namespace krl::desktop
