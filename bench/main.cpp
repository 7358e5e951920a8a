// Prints ratios against peers that do the same work in the same run. Absolute times say little on a
// shared machine, so none are printed but as a hint.

#include "bench/Comparison.h"
#include "bench/PhoneOnTheWire.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <vector>

namespace bench {
namespace {

struct Line {
    std::string title;
    std::string does;
    double peerScale;
};

std::vector<Line>& lines() {
    static std::vector<Line> all;
    return all;
}

constexpr int kRepetitions = 9;

void registerSide(const std::string& name, Body body) {
    benchmark::RegisterBenchmark(name.c_str(), std::move(body))
        ->Repetitions(kRepetitions)
        ->MinTime(0.05)
        ->UseRealTime();
}

double quantile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    const double position = fraction * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(position);
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] +
           (position - static_cast<double>(below)) * (values[above] - values[below]);
}

/// Collects the seconds of one iteration by benchmark name; prints when all have run.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override {
        std::printf("%s\n", processorName().c_str());
        std::printf("compiler %s, %s build\n", __VERSION__, buildKind());
#ifndef NDEBUG
        std::printf("WARNING: built without optimisation; these numbers mean nothing.\n");
#endif
        std::printf("time of ours / time of the peer: median, and the middle half of %d runs\n\n",
                    kRepetitions);
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                failed_ = true;
                std::printf("%s FAILED: %s\n", run.run_name.function_name.c_str(),
                            run.error_message.c_str());
            } else if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
                seconds_[run.run_name.function_name].push_back(run.real_accumulated_time /
                                                               static_cast<double>(run.iterations));
            }
        }
    }

    void Finalize() override {
        for (const Line& line : lines()) {
            print(line);
        }
    }

    bool failed() const {
        return failed_;
    }

private:
    static const char* buildKind() {
#ifdef NDEBUG
        return "optimised";
#else
        return "debug";
#endif
    }

    static std::string processorName() {
        std::ifstream cpuinfo("/proc/cpuinfo");
        for (std::string text; std::getline(cpuinfo, text);) {
            if (text.starts_with("model name")) {
                return text.substr(text.find(':') + 2);
            }
        }
        return "unknown processor";
    }

    void print(const Line& line) {
        const std::vector<double>& ours = seconds_[line.title + "/ours"];
        const std::vector<double>& peer = seconds_[line.title + "/peer"];
        if (ours.empty() || peer.empty()) {
            return;
        }
        const double peerMedian = quantile(peer, 0.5) * line.peerScale;
        std::printf("%-28s %6.2f  [%5.2f .. %5.2f]  %s (ours %.3g ms)\n", line.title.c_str(),
                    quantile(ours, 0.5) / peerMedian, quantile(ours, 0.25) / peerMedian,
                    quantile(ours, 0.75) / peerMedian, line.does.c_str(),
                    quantile(ours, 0.5) * 1e3);
    }

    std::map<std::string, std::vector<double>> seconds_;
    bool failed_ = false;
};

} // namespace

void compare(Comparison comparison, std::string_view does) {
    registerSide(comparison.title + "/ours", std::move(comparison.ours));
    registerSide(comparison.title + "/peer", std::move(comparison.peer));
    lines().push_back({comparison.title, std::string(does), comparison.peerScale});
}

} // namespace bench

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    // In turns, so that what else the machine does falls on both sides alike.
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    arguments.push_back(interleaving.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    bench::registerSlotTable();
    bench::registerPropertyLists();
    bench::registerGeneration();
    const auto world = std::make_shared<bench::World>();
    bench::registerTransfers(world);
    bench::registerObjectLayer(world);
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.failed() ? 1 : 0;
}
