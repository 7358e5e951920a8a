#include "torture/Campaign.h"

#include "torture/Trial.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace torture {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kFirmwares[] = {"1.0.2", "1.1.1", "1.1.4"};

bool fits(const std::string& wanted, const std::string& name) {
    return wanted.empty() || wanted == name;
}

/// A phone of each firmware, each with a computer of its own.
std::vector<std::unique_ptr<Bench>> makeBenches(const fs::path& folder, const Choice& choice) {
    std::vector<std::unique_ptr<Bench>> benches;
    for (const char* firmware : kFirmwares) {
        if (fits(choice.firmware, firmware)) {
            benches.push_back(std::make_unique<Bench>(folder / firmware, firmware, choice.vesk));
        }
    }
    return benches;
}

/// A trial by its place: the same in the benches of every worker.
struct Planned {
    size_t bench;
    size_t job;
    const Course* course;
    std::vector<Misfortune> misfortunes;
};

class Campaign {
public:
    Campaign(const Choice& choice, fs::path folder) : choice_(choice), folder_(std::move(folder)) {
        plan();
        std::shuffle(planned_.begin(), planned_.end(), std::mt19937_64(choice_.seed));
        end_ = Clock::now() + choice_.time.value_or(std::chrono::seconds(0));
    }

    Findings run() {
        std::vector<std::jthread> workers;
        for (unsigned number = 1; number <= choice_.workers; ++number) {
            workers.emplace_back([this, number] { work(folder_ / std::to_string(number)); });
        }
        workers.clear();
        findings_.planned = planned_.size();
        return std::move(findings_);
    }

private:
    void plan() {
        const auto benches = makeBenches(folder_ / "plan", choice_);
        for (size_t bench = 0; bench < benches.size(); ++bench) {
            const std::vector<Job>& jobs = benches[bench]->jobs();
            for (size_t job = 0; job < jobs.size(); ++job) {
                if (fits(choice_.job, jobs[job].name)) {
                    courses_.push_back(
                        std::make_unique<Course>(benches[bench]->courseOf(jobs[job])));
                    plan(bench, job, jobs[job]);
                }
            }
        }
    }

    void plan(size_t bench, size_t job, const Job& done) {
        const Course& course = *courses_.back();
        if (!choice_.misfortunes.empty()) {
            planned_.push_back({bench, job, &course, misfortunesIn(choice_.misfortunes)});
            return;
        }
        const std::vector<Misfortune> all = misfortunesOf(done, course.occasions);
        for (const Misfortune& misfortune : all) {
            std::vector<Misfortune> one{misfortune};
            if (choice_.twice) {
                one.push_back(drawSecond(all));
            }
            if (fits(choice_.kind, misfortune.kind())) {
                planned_.push_back({bench, job, &course, std::move(one)});
            }
        }
    }

    /// One that leaves it clear what the end is to be.
    const Misfortune& drawSecond(const std::vector<Misfortune>& all) {
        for (;;) {
            const Misfortune& drawn = all[random_() % all.size()];
            if (drawn.isPrivate()) {
                return drawn;
            }
        }
    }

    void work(const fs::path& folder) {
        const auto benches = makeBenches(folder, choice_);
        while (const Planned* const planned = next()) {
            Bench& bench = *benches[planned->bench];
            const Job& job = bench.jobs()[planned->job];
            std::vector<std::string> said;
            note(*planned, bench.firmware() + " " + job.name,
                 Trial(bench, job, *planned->course, planned->misfortunes, said).run(), said);
        }
    }

    /// Null when there is none left, or no time.
    const Planned* next() {
        const size_t index = next_.fetch_add(choice_.parts);
        return index < planned_.size() && (!choice_.time || Clock::now() < end_) ? &planned_[index]
                                                                                 : nullptr;
    }

    void note(const Planned& planned, const std::string& title, const Counts& counts,
              const std::vector<std::string>& said) {
        const std::lock_guard<std::mutex> held(mutex_);
        findings_.byJob[title] += counts;
        findings_.byKind[planned.misfortunes.front().kind()] += counts;
        findings_.all += counts;
        ++findings_.trials;
        for (const std::string& text : said) {
            std::cout << text << std::endl;
        }
    }

    const Choice choice_;
    const fs::path folder_;
    std::mt19937_64 random_{choice_.seed};
    std::vector<std::unique_ptr<Course>> courses_;
    std::vector<Planned> planned_;
    Clock::time_point end_;
    std::atomic<size_t> next_ = choice_.part - 1;
    std::mutex mutex_;
    Findings findings_;
};

} // namespace

Findings carryOut(const Choice& choice, const fs::path& folder) {
    return Campaign(choice, folder).run();
}

} // namespace torture
