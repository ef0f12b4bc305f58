// Runs the benchmarks and prints how they compare, as a table of ratios. Times by themselves tell
// more about the machine than about the library; --benchmark_out=FILE keeps them.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

struct Ratio {
    const char* what;
    const char* measured;
    const char* yardstick;
    double target; ///< at most this much; 0 for none
};

const std::vector<Ratio> timeRatios = {
    {"65 rows of `zfs get all` to a text table / streams", "Table", "Split/get", 0},
    {"65 rows to properties / streams", "GetRows", "Split/get", 0},
    {"a dataset's whole way, text to record / streams", "Records/dataset", "Split/dataset", 0.5},
    {"10,000 list rows to records / streams", "Records/hostList", "Split/hostList", 0},
    {"`zpool status` of 400 disks / streams", "PoolStatus", "Split/status", 0},
    {"one of 100,000 datasets / one of 1,000", "EnumerateHosts/100000", "EnumerateHosts/1000", 1.2},
    {"copying a dataset / reading it with streams", "CopyDataset", "Split/dataset", 0},
    {"moving a dataset / copying it", "MoveDataset", "CopyDataset", 0},
    {"tree of 1,000 / sorting the names", "GrowTree/1000", "SortNames/1000", 0},
    {"tree of 10,000 / sorting the names", "GrowTree/10000", "SortNames/10000", 0},
    {"tree of 100,000 / sorting the names", "GrowTree/100000", "SortNames/100000", 0},
    {"a child process / a bare one", "Child/0", "BareChild/0", 1.15},
    {"the same, large parent", "Child/1", "BareChild/1", 1.15},
    {"a child of a large parent / of a small one", "Child/1", "Child/0", 1},
    {"time of 5,000 datasets, batched / one by one", "Enumerate/256", "Enumerate/0", 0.1},
};
const std::vector<Ratio> commandRatios = {
    {"commands for 5,000 datasets, batched / one by one", "Enumerate/256", "Enumerate/0", 0.05},
};

/// Keeps, of all repetitions of a benchmark, the fastest: what disturbs one only adds to it.
class Fastest : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty())
                name += "/" + run.run_name.args;
            if (run.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", name.c_str(), run.error_message.c_str());
                failed = true;
            } else if (run.run_type == Run::RT_Iteration) {
                const double time = 1 / run.counters.at("items_per_second");
                const auto known = times.emplace(name, time).first;
                known->second = std::min(known->second, time);
                if (const auto counter = run.counters.find("commands");
                    counter != run.counters.end())
                    commands[name] = counter->second;
            }
        }
    }

    std::map<std::string, double> times; ///< of one item, in seconds
    std::map<std::string, double> commands;
    bool failed = false;
};

void Print(const std::vector<Ratio>& ratios, const std::map<std::string, double>& measured) {
    for (const Ratio& ratio : ratios) {
        const auto value = measured.find(ratio.measured);
        const auto yardstick = measured.find(ratio.yardstick);
        if (value == measured.end() || yardstick == measured.end())
            continue; // by --benchmark_filter
        std::printf("| %-53s | %6.3f |", ratio.what, value->second / yardstick->second);
        ratio.target > 0 ? std::printf(" %8.2f |\n", ratio.target) : std::printf("          |\n");
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Fastest reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("| %-53s | ratio  | to reach |\n| --- | --- | --- |\n", "measured / yardstick");
    Print(timeRatios, reporter.times);
    Print(commandRatios, reporter.commands);
    return reporter.failed ? 1 : 0;
}
