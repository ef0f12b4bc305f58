// What is done with the records of datasets.

#include "HostText.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zfslib;
using benchmark::State;

ZfsDataset Dataset(const std::string& name) {
    ZfsDataset dataset;
    dataset.name = name;
    ZfsDatasetEnumerator::ParseDatasetProperties(bench::GetOutput({name}), dataset.properties);
    return dataset;
}

void CopyDataset(State& state) {
    const ZfsDataset dataset = Dataset("tank/export/project-10000");
    for (auto _ : state)
        benchmark::DoNotOptimize(ZfsDataset(dataset));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(CopyDataset);

void MoveDataset(State& state) {
    ZfsDataset dataset = Dataset("tank/export/project-10000");
    for (auto _ : state) {
        ZfsDataset moved(std::move(dataset));
        benchmark::DoNotOptimize(moved);
        dataset = std::move(moved);
    }
    state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(MoveDataset);

std::vector<std::string> Names(const State& state) {
    return bench::DatasetNames(static_cast<std::size_t>(state.range(0)));
}

void SortNames(State& state) {
    const std::vector<std::string> names = Names(state);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::string> sorted = names;
        state.ResumeTiming();
        std::sort(sorted.begin(), sorted.end());
        benchmark::DoNotOptimize(sorted);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void GrowTree(State& state) {
    const std::vector<std::string> names = Names(state);
    for (auto _ : state) {
        state.PauseTiming();
        {
            std::vector<ZfsDataset> datasets(names.size());
            for (std::size_t i = 0; i < names.size(); ++i)
                datasets[i].name = names[i];
            state.ResumeTiming();
            const auto root = ZfsDatasetEnumerator::GrowTree(std::move(datasets));
            benchmark::DoNotOptimize(root);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(SortNames)->Arg(1000)->Arg(10000)->Arg(100000);
BENCHMARK(GrowTree)->Arg(1000)->Arg(10000)->Arg(100000);

} // namespace
