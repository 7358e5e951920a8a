#pragma once

#include "engine/state/OpenPhone.h"
#include "vesk/terminal/Output.h"

namespace vesk {

/// "phone" in the documents of commands that work on one.
inline Json phoneJson(const PhoneFacts& facts) {
    return {{"udid", facts.udid}, {"name", facts.name}, {"firmware", facts.firmware}};
}

} // namespace vesk
