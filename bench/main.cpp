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
    /// Names of benchmarks with their arguments: the time of one item; or of one of their counters.
    const char* measured;
    const char* yardstick;
    double target; ///< at most this much; 0 for none
};

const std::vector<Ratio> ratios = {
    {"65 rows of `zfs get all` to a text table / streams", "Table", "Split/get", 0},
    {"65 rows to properties / streams", "GetRows", "Split/get", 0},
    {"a dataset's whole way, text to record / streams", "Records/dataset", "Split/dataset", 0.25},
    {"10,000 list rows to bare records / streams", "Records/hostList", "Split/hostList", 2},
    {"`zpool status` of 400 disks / streams", "PoolStatus", "Split/status", 1},
    {"one of 100,000 datasets / one of 1,000", "EnumerateHost/100000", "EnumerateHost/1000", 1.2},
    {"copying a dataset / reading it with streams", "CopyDataset", "Split/dataset", 0},
    {"moving a dataset / copying it", "MoveDataset", "CopyDataset", 0},
    {"tree of 1,000 / sorting the names", "GrowTree/1000", "SortNames/1000", 0},
    {"tree of 10,000 / sorting the names", "GrowTree/10000", "SortNames/10000", 0},
    {"tree of 100,000 / sorting the names", "GrowTree/100000", "SortNames/100000", 0},
    {"state of 100,000 datasets / streams", "ReadState/100000", "SplitState/100000", 0.25},
    {"plan for 100,000 equal datasets / reading them", "PlanNothing/100000", "ReadState/100000", 1},
    {"a child process / a bare one", "Children/0:ours", "Children/0:bare", 1.15},
    {"the same, large parent", "Children/1:ours", "Children/1:bare", 1.15},
    {"a child of a large parent / of a small one", "Children/1:ours", "Children/0:ours", 0},
    {"a bare child of a large parent / of a small one", "Children/1:bare", "Children/0:bare", 0},
    {"time of 5,000 datasets, batched / one by one", "Enumerate/256", "Enumerate/0", 0.1},
    {"commands for 5,000 datasets, batched / one by one", "Enumerate/256:commands",
     "Enumerate/0:commands", 0.05},
    {"5,000 in 100 filesystems, 2 workers / none", "EnumerateAhead/2/0", "EnumerateAhead/0/0", 0.6},
    {"the same over 20 ms, 8 workers / none", "EnumerateAhead/8/20", "EnumerateAhead/0/20", 0.2},
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
                for (const auto& [counter, value] : run.counters)
                    counter == "items_per_second" ? Keep(name, 1 / value)
                                                  : Keep(name + ":" + counter, value);
            }
        }
    }

    std::map<std::string, double> measured; ///< by the names that a Ratio gives
    bool failed = false;

private:
    void Keep(const std::string& name, double value) {
        const auto known = measured.emplace(name, value).first;
        known->second = std::min(known->second, value);
    }
};

void Print(const std::map<std::string, double>& measured) {
    for (const Ratio& ratio : ratios) {
        const auto value = measured.find(ratio.measured);
        const auto yardstick = measured.find(ratio.yardstick);
        if (value == measured.end() || yardstick == measured.end())
            continue; // not in this program, or filtered out
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
    Print(reporter.measured);
    return reporter.failed ? 1 : 0;
}
