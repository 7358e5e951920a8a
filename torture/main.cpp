/// torture [--seconds N] [--seed N] [--part K/N] [--workers N] [--folder DIR]
///         [--twice yes] [--vesk PROGRAM] [--firmware V] [--job NAME] [--kind TEXT] [--fault TEXT]
///
/// Everything is tried, or every n-th trial (--part), or as many as there is time for (--seconds), in
/// an order drawn by the seed. --twice has the attempt to repeat a job meet a second misfortune; --fault
/// makes one trial of each job, with the misfortunes that it names. Prints what went wrong and two
/// tables; the exit status is 0 when nothing did.
#include "torture/Campaign.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace torture {
namespace {

namespace fs = std::filesystem;

struct Options {
    Choice choice{};
    fs::path folder{};
};

/// Nothing that is tried here outlives the program, so that it needs no platter.
fs::path defaultFolder() {
    const fs::path memory = "/dev/shm";
    return access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path();
}

/// Most of the time of a trial is waiting.
unsigned defaultWorkers() {
    constexpr unsigned kForEachProcessor = 6;
    return kForEachProcessor * std::max(1U, std::thread::hardware_concurrency());
}

void setPart(Choice& choice, const std::string& value) {
    const size_t slash = value.find('/');
    choice.part = std::stoul(value);
    choice.parts = slash == std::string::npos ? 0 : std::stoul(value.substr(slash + 1));
    if (choice.part < 1 || choice.part > choice.parts) {
        throw std::invalid_argument("\"" + value + "\" is no part, such as 1/3");
    }
}

Options optionsOf(int count, char** words) {
    Options options{.folder = defaultFolder()};
    Choice& choice = options.choice;
    choice.vesk = KRL_VESK;
    choice.workers = defaultWorkers();
    const std::map<std::string, std::function<void(const std::string&)>> known{
        {"--seconds",
         [&](const auto& value) { choice.time = std::chrono::seconds(std::stoi(value)); }},
        {"--twice", [&](const auto& value) { choice.twice = value == "yes"; }},
        {"--seed", [&](const auto& value) { choice.seed = std::stoull(value); }},
        {"--part", [&](const auto& value) { setPart(choice, value); }},
        {"--workers",
         [&](const auto& value) {
             choice.workers = static_cast<unsigned>(std::max(1, std::stoi(value)));
         }},
        {"--folder", [&](const auto& value) { options.folder = value; }},
        {"--vesk", [&](const auto& value) { choice.vesk = value; }},
        {"--firmware", [&](const auto& value) { choice.firmware = value; }},
        {"--job", [&](const auto& value) { choice.job = value; }},
        {"--kind", [&](const auto& value) { choice.kind = value; }},
        {"--fault", [&](const auto& value) { choice.misfortunes = value; }}};
    for (int i = 1; i < count; i += 2) {
        const auto option = known.find(words[i]);
        if (option == known.end() || i + 1 == count) {
            throw std::invalid_argument(std::string("there is no option ") + words[i] +
                                        ", or no value for it");
        }
        option->second(words[i + 1]);
    }
    return options;
}

/// A folder that goes with its holder.
class OwnFolder {
public:
    explicit OwnFolder(const fs::path& parent) : name_((parent / "torture-XXXXXX").string()) {
        if (mkdtemp(name_.data()) == nullptr) {
            throw std::runtime_error("no folder can be made in " + parent.string());
        }
    }

    ~OwnFolder() {
        std::error_code ignored;
        fs::remove_all(name_, ignored);
    }

    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;

    fs::path path() const { return name_; }

private:
    std::string name_;
};

void printRow(const std::string& title, const Counts& counts) {
    std::printf("%-24s", title.c_str());
    for (const auto& [name, count] : columns(counts)) {
        std::printf(" %13llu", static_cast<unsigned long long>(count));
    }
    std::printf("\n");
}

void printTable(const std::map<std::string, Counts>& rows, const Counts& all) {
    std::printf("\n%-24s", "");
    for (const auto& [name, count] : columns(all)) {
        std::printf(" %13s", name.c_str());
    }
    std::printf("\n");
    for (const auto& [title, counts] : rows) {
        printRow(title, counts);
    }
    printRow("all", all);
}

int run(const Options& options) {
    const OwnFolder folder(options.folder);
    const Findings findings = carryOut(options.choice, folder.path());
    printTable(findings.byJob, findings.all);
    printTable(findings.byKind, findings.all);
    std::printf("\n%zu of %zu trials were made. The longest run of vesk took %.1f seconds.\n",
                findings.trials, findings.planned,
                std::chrono::duration<double>(findings.all.longestRun).count());
    if (findings.all.faults == 0) {
        std::printf("No misfortune was met: nothing was tried.\n");
    }
    return findings.all.faults > 0 && findings.all.isClean() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace
} // namespace torture

int main(int count, char** words) {
    try {
        return torture::run(torture::optionsOf(count, words));
    } catch (const std::exception& failure) {
        std::cerr << "torture: " << failure.what() << '\n';
        return 2;
    }
}
