#include "audio/songs/SongNames.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace krl::audio {
namespace {

using engine::composed;
using engine::LocalRingtone;
using engine::Others;
using engine::PhoneRingtone;

/// Whether a name is another one with a number behind it.
bool isNumbered(const std::string& name, const std::string& base) {
    const std::string_view rest = std::string_view(name).substr(std::min(base.size(), name.size()));
    return name.starts_with(base) && rest.size() > 3 && rest.starts_with(" (") &&
           rest.ends_with(")") && rest.find_first_not_of("0123456789", 2) == rest.size() - 1;
}

class Naming {
public:
    Naming(const std::vector<LocalRingtone*>& wanted, const std::vector<PhoneRingtone>& there,
           Others others)
        : wanted_(wanted), named_(wanted.size()), spellings_(there) {
        for (const PhoneRingtone& ringtone : there) {
            bySource_.emplace(ringtone.source.substr(0, ringtone.source.find('-')),
                              composed(ringtone.name));
            if (others == Others::Stay) {
                numbersTaken_.insert(composed(ringtone.name));
            }
        }
    }

    void run() {
        for (size_t i = 0; i < wanted_.size(); ++i) {
            keepNameThere(i);
        }
        for (size_t i = 0; i < wanted_.size(); ++i) {
            const std::string base = composed(wanted_[i]->name);
            if (!named_[i] && !taken_.contains(base)) {
                name(i, base);
            }
        }
        for (size_t i = 0; i < wanted_.size(); ++i) {
            if (!named_[i]) {
                name(i, numbered(composed(wanted_[i]->name)));
            }
        }
    }

private:
    /// What is on the phone under its name, or under that with a number.
    void keepNameThere(size_t i) {
        const LocalRingtone& ringtone = *wanted_[i];
        if (!ringtone.source) {
            return;
        }
        const std::string base = composed(ringtone.name);
        const auto [first, last] = bySource_.equal_range(engine::sourceName(*ringtone.source));
        for (auto there = first; there != last; ++there) {
            const std::string& name = there->second;
            if ((name == base || isNumbered(name, base)) && !taken_.contains(name)) {
                this->name(i, name);
                return;
            }
        }
    }

    std::string numbered(const std::string& base) {
        for (int& number = lastNumber_[base];;) {
            number = std::max(number + 1, 2);
            std::string name = fmt::format("{} ({})", base, number);
            if (!taken_.contains(name) && !numbersTaken_.contains(name)) {
                return name;
            }
        }
    }

    void name(size_t i, const std::string& form) {
        taken_.insert(form);
        named_[i] = true;
        wanted_[i]->name = spellings_.of(form).value_or(form);
    }

    const std::vector<LocalRingtone*>& wanted_;
    std::vector<bool> named_;
    engine::Spellings spellings_;
    std::multimap<std::string, std::string> bySource_; ///< to names
    std::set<std::string> taken_;                      ///< in normal form C, as all names here
    std::set<std::string> numbersTaken_;
    std::map<std::string, int> lastNumber_;
};

} // namespace

void nameApart(const std::vector<LocalRingtone*>& wanted, const std::vector<PhoneRingtone>& there,
               Others others) {
    Naming(wanted, there, others).run();
}

} // namespace krl::audio
