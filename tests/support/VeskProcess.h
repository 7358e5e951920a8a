/// vesk as a process of its own, with its output in pipes or on a terminal.
#pragma once

#include <nlohmann/json.hpp>

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vesk::testing {

struct VeskResult {
    int exitCode = -1; ///< or minus the signal that ended it
    std::string out;   ///< on a terminal everything that it showed
    std::string err;

    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

/// For messages of failed expectations.
void PrintTo(const VeskResult& result, std::ostream* out);

class VeskProcess {
public:
    struct Options {
        bool terminal = false;
        unsigned short columns = 80;
        std::map<std::string, std::string> environment; ///< added to this process's own
        std::string program;                            ///< empty: vesk
        /// Whether add, replace and sync look into files. Those of most tests hold no sound.
        bool judges = false;
    };

    VeskProcess(const std::vector<std::string>& arguments, const Options& options);
    explicit VeskProcess(const std::vector<std::string>& arguments);
    ~VeskProcess();
    VeskProcess(const VeskProcess&) = delete;
    VeskProcess& operator=(const VeskProcess&) = delete;

    pid_t process() const { return pid_; }

    void signal(int number) const;

    /// Types on the terminal; "\x03" is Ctrl-C.
    void type(const std::string& keys) const;

    /// Waits until this stands in the output or the errors.
    void waitForText(const std::string& text);

    /// Waits for the end.
    VeskResult wait();

private:
    /// Takes in output until the condition holds; fails the test when that takes a minute.
    void pump(const std::function<bool()>& done);
    bool take(int& descriptor, std::string& text);

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    VeskResult result_;
};

/// What a terminal of any width shows in the end: lines, with returns and erasures carried out.
std::vector<std::string> screenLines(const std::string& output);

} // namespace vesk::testing
