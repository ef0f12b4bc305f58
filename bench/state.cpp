// A host's state from what the tools print, and the plan that finds nothing to do.

#include "HostText.h"
#include "restore/HostStateReader.h"
#include "restore/Plan.h"

#include <benchmark/benchmark.h>
#include <sstream>
#include <string>
#include <vector>

namespace {

using benchmark::State;

/// Keeps no row: to keep 20 million of them takes more memory than many machines have.
void SplitState(State& state) {
    const bench::StateHost host(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        for (const std::string* text : {&host.skeleton, &host.values, &host.skeleton}) {
            std::istringstream lines(*text);
            std::vector<std::string> row;
            for (std::string line; std::getline(lines, line);) {
                std::istringstream words(line);
                row.clear();
                for (std::string word; words >> word;)
                    row.push_back(word);
                benchmark::DoNotOptimize(row);
            }
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SplitState)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

void ReadState(State& state) {
    const bench::StateHost host(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(zfslib::restore::ReadHostState(
            {"tank"}, [&host](const std::string& command) { return host.Answer(command); }));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ReadState)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

void PlanNothing(State& state) {
    const bench::StateHost host(static_cast<std::size_t>(state.range(0)));
    const auto read = [&host] {
        return zfslib::restore::ReadHostState(
            {"tank"}, [&host](const std::string& command) { return host.Answer(command); });
    };
    const zfslib::restore::HostState saved = read();
    zfslib::restore::LiveState live;
    live.state = read();
    for (auto _ : state) {
        const zfslib::restore::Plan plan = zfslib::restore::MakePlan(saved, live);
        if (!plan.IsEmpty())
            state.SkipWithError("equal states differ");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PlanNothing)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
