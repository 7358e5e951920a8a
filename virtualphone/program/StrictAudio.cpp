#include "virtualphone/program/StrictAudio.h"

#include <algorithm>
#include <iostream>

namespace virtualphone {

namespace {

// In one write, because phones say things on several threads.
void say(const std::string& line) {
    std::cerr << line + '\n' << std::flush;
}

} // namespace

std::string describe(const Unplayable& ringtone) {
    std::string file = ringtone.file;
    std::replace_if(
        file.begin(), file.end(), [](unsigned char c) { return c < ' ' || c == '\x7f'; }, '?');
    return "would not play: \"" + file + "\": " + ringtone.reason;
}

void sayWhatWouldNotPlay(PhoneOptions& options) {
    options.onUnplayable = [](const Unplayable& ringtone) { say(describe(ringtone)); };
}

bool allWouldPlay(const std::vector<std::shared_ptr<Phone>>& phones) {
    bool all = true;
    for (const std::shared_ptr<Phone>& phone : phones) {
        const std::vector<Unplayable> unplayable = phone->wouldNotPlay();
        if (!unplayable.empty()) {
            all = false;
            say("virtualphone: of what is on \"" + phone->options().name + "\" now");
        }
        for (const Unplayable& ringtone : unplayable) {
            say("  " + describe(ringtone));
        }
    }
    return all;
}

} // namespace virtualphone
