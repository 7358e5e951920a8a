/// torture [--seconds N] [--seed N] [--workers N] [--firmware V] [--job NAME] [--fault TEXT]
///
/// Without --seconds everything is tried; with it, a sample that takes about that long, drawn by
/// the seed. Prints what went wrong and a table; the exit status is 0 when nothing did.
#include "torture/Trial.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>
#include <stdexcept>

namespace torture {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
    std::optional<int> seconds;
    uint64_t seed = 1;
    unsigned workers = 2;
    std::string firmware; ///< all unless given
    std::string job;
    std::string fault;
};

Options optionsOf(int count, char** words) {
    Options options;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string name = words[i];
        const std::string value = words[i + 1];
        if (name == "--seconds") {
            options.seconds = std::stoi(value);
        } else if (name == "--seed") {
            options.seed = std::stoull(value);
        } else if (name == "--workers") {
            options.workers = static_cast<unsigned>(std::max(1, std::stoi(value)));
        } else if (name == "--firmware") {
            options.firmware = value;
        } else if (name == "--job") {
            options.job = value;
        } else if (name == "--fault") {
            options.fault = value;
        } else {
            throw std::invalid_argument("there is no option " + name);
        }
    }
    return options;
}

struct Trial {
    size_t bench = 0;
    size_t job = 0;
    Misfortune misfortune;
};

/// A folder of its own, with phones of three firmwares.
class Worker {
public:
    Worker(const fs::path& folder, const Options& options) : jobs_(makeJobs(folder / "files")) {
        for (const char* firmware : {"1.0.2", "1.1.1", "1.1.4"}) {
            if (options.firmware.empty() || options.firmware == firmware) {
                firmwares_.emplace_back(firmware);
                benches_.push_back(std::make_unique<Bench>(folder / firmware, firmware));
            }
        }
        std::erase_if(
            jobs_, [&](const Job& job) { return !options.job.empty() && options.job != job.name; });
    }

    /// Every trial there is, in a fixed order.
    std::vector<Trial> all(const std::string& fault) {
        std::vector<Trial> trials;
        for (size_t bench = 0; bench < benches_.size(); ++bench) {
            for (size_t job = 0; job < jobs_.size(); ++job) {
                for (const auto& [service, requests] : benches_[bench]->requestsOf(jobs_[job])) {
                    for (uint32_t request = 1; request <= requests; ++request) {
                        for (const std::string& action : actionsFor(service)) {
                            Misfortune one{service, request, action};
                            if (fault.empty() || one.text() == fault) {
                                trials.push_back({bench, job, std::move(one)});
                            }
                        }
                    }
                }
            }
        }
        return trials;
    }

    Counts attempt(const Trial& trial, std::vector<std::string>& said) {
        return benches_[trial.bench]->attempt(jobs_[trial.job], trial.misfortune, said);
    }

    size_t rows() const { return benches_.size() * jobs_.size(); }

    size_t rowOf(const Trial& trial) const { return trial.bench * jobs_.size() + trial.job; }

    std::string titleOf(size_t row) const {
        return firmwares_[row / jobs_.size()] + " " + jobs_[row % jobs_.size()].name;
    }

private:
    std::vector<Job> jobs_;
    std::vector<std::string> firmwares_;
    std::vector<std::unique_ptr<Bench>> benches_;
};

/// Goes through every n-th trial; what is wrong goes to standard output.
std::vector<Counts> work(Worker& worker, const Options& options, unsigned number) {
    std::vector<Trial> trials = worker.all(options.fault);
    if (options.seconds) {
        std::shuffle(trials.begin(), trials.end(), std::mt19937_64(options.seed));
    }
    const auto end = Clock::now() + std::chrono::seconds(options.seconds.value_or(0));
    std::vector<Counts> counts(worker.rows());
    for (size_t i = number; i < trials.size(); i += options.workers) {
        if (options.seconds && Clock::now() > end) {
            break;
        }
        std::vector<std::string> said;
        counts[worker.rowOf(trials[i])] += worker.attempt(trials[i], said);
        for (const std::string& line : said) {
            std::cout << line << std::endl;
        }
    }
    return counts;
}

void printTable(const Worker& worker, const std::vector<Counts>& counts) {
    Counts total;
    std::printf("\n%-14s", "");
    for (const auto& [name, count] : columns(total)) {
        std::printf("%15s", name.c_str());
    }
    const auto print = [](const std::string& title, const Counts& row) {
        std::printf("\n%-14s", title.c_str());
        for (const auto& [name, count] : columns(row)) {
            std::printf("%15llu", static_cast<unsigned long long>(count));
        }
    };
    for (size_t row = 0; row < counts.size(); ++row) {
        print(worker.titleOf(row), counts[row]);
        total += counts[row];
    }
    print("all", total);
    std::printf("\n");
}

/// Starts the other workers as processes of their own and adds up what they count.
int run(const Options& options) {
    std::string name = (fs::temp_directory_path() / "torture-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    const fs::path folder = name;
    std::vector<std::pair<pid_t, int>> others;
    unsigned number = 0;
    bool isOther = false;
    std::array<int, 2> ends{};
    while (!isOther && ++number < options.workers) {
        if (pipe(ends.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        const pid_t child = fork();
        isOther = child == 0;
        if (!isOther) {
            close(ends[1]);
            others.emplace_back(child, ends[0]);
        }
    }
    const unsigned mine = isOther ? number : 0;
    Worker worker(folder / std::to_string(mine), options);
    std::vector<Counts> counts = work(worker, options, mine);
    const size_t bytes = counts.size() * sizeof(Counts);
    if (isOther) {
        _exit(write(ends[1], counts.data(), bytes) == static_cast<ssize_t>(bytes) ? 0 : 1);
    }
    bool isWhole = true;
    for (const auto& [process, input] : others) {
        std::vector<Counts> more(counts.size());
        isWhole = read(input, more.data(), bytes) == static_cast<ssize_t>(bytes) && isWhole;
        for (size_t i = 0; i < counts.size(); ++i) {
            counts[i] += more[i];
        }
        waitpid(process, nullptr, 0);
    }
    printTable(worker, counts);
    fs::remove_all(folder);
    if (!isWhole) {
        std::printf("A worker has ended before its time.\n");
    }
    return isWhole && std::all_of(counts.begin(), counts.end(),
                                  [](const Counts& row) { return row.isClean(); })
               ? EXIT_SUCCESS
               : EXIT_FAILURE;
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
