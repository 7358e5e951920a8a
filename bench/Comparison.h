#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <string_view>

namespace bench {

using Body = std::function<void(benchmark::State&)>;

/// One line of the report: how long `ours` takes over how long `peer` takes, both run in turns in
/// this process. Below 1 ours is faster.
struct Comparison {
    std::string title;
    Body ours;
    Body peer;
    /// The work of the peer is multiplied by this before the division, for a peer that does a
    /// fraction of the work.
    double peerScale = 1.0;
};

/// Adds a line to the report. `does` says in a few words what is measured.
void compare(Comparison comparison, std::string_view does);

void registerSlotTable();
void registerPropertyLists();
void registerGeneration();

} // namespace bench
