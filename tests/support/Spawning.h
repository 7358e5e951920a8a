/// What posix_spawn() takes, of strings.
#pragma once

#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace krl::test {

/// Arguments or an environment, ended by null; lent by the texts.
inline std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

/// This process's environment with variables added or replaced.
inline std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
    std::vector<std::string> result;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (!added.contains(text.substr(0, text.find('=')))) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : added) {
        result.push_back(name + "=" + value);
    }
    return result;
}

} // namespace krl::test
