#include "vesk/commands/StrangeKeys.h"

#include <fmt/format.h>

namespace vesk {

void warnOfStrangeKeys(const std::string& whose, const Catalogue& catalogue, Output& output) {
    const std::vector<std::string> keys = strangeKeys(catalogue);
    if (keys.empty()) {
        return;
    }
    const std::string which = keys.size() == 1
                                  ? "an entry's key is"
                                  : fmt::format("the keys of {} entries are", keys.size());
    output.warning(fmt::format("{} is damaged: {} not the name of one file in the ringtone folder, "
                               "and nothing is done with the files:",
                               whose, which),
                   keys);
}

} // namespace vesk
