// Text to values. The yardstick for each is the plainest way to cut the same text into cells.

#include "HostText.h"
#include "zfstools/TextTable.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <benchmark/benchmark.h>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace zfslib;
using benchmark::State;

const std::vector<std::string> datasetName = {"tank/export/project-10000"};
const std::string getText = bench::GetOutput(datasetName);
const std::string datasetListText = bench::ListOutput(datasetName);
const std::string hostListText = bench::ListOutput(bench::DatasetNames(10000));
const std::string statusText = bench::StatusOutput(400);

void Split(State& state, const std::string& text) {
    for (auto _ : state) {
        std::vector<std::vector<std::string>> rows;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            rows.emplace_back();
            for (std::string word; words >> word;)
                rows.back().push_back(word);
        }
        benchmark::DoNotOptimize(rows);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(Split, get, getText);
BENCHMARK_CAPTURE(Split, dataset, datasetListText + getText);
BENCHMARK_CAPTURE(Split, hostList, hostListText);
BENCHMARK_CAPTURE(Split, status, statusText);

void Table(State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(TextTable(getText));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Table);

void GetRows(State& state) {
    for (auto _ : state) {
        ZfsProperties properties;
        ZfsDatasetEnumerator::ParseDatasetProperties(getText, properties);
        benchmark::DoNotOptimize(properties);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(GetRows);

/// The records of a list whose datasets all have the same properties. They are listed as
/// snapshots, for which the process executor is not asked for quotas.
std::vector<ZfsDataset> Enumerate(const std::string& listOutput, const std::string& getOutput) {
    const CommandExecutor executor = [&getOutput](const std::string&) { return getOutput; };
    return ZfsDatasetEnumerator().extractDatasetFromOutput(listOutput, ZfsDataset::snapshot,
                                                           executor);
}

void Records(State& state, const std::string& listOutput, const std::string& getOutput) {
    for (auto _ : state)
        benchmark::DoNotOptimize(Enumerate(listOutput, getOutput));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(Records, dataset, datasetListText, getText);
BENCHMARK_CAPTURE(Records, hostList, hostListText, "");

void EnumerateHost(State& state) {
    const std::string listOutput =
        bench::ListOutput(bench::DatasetNames(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state)
        benchmark::DoNotOptimize(Enumerate(listOutput, getText));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EnumerateHost)->Arg(1000)->Arg(100000);

void PoolStatus(State& state) {
    for (auto _ : state) {
        ZpoolEnumerator::Config config;
        ZpoolEnumerator::ParseZpoolConfig(statusText, config);
        benchmark::DoNotOptimize(config);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PoolStatus);

} // namespace
