// A whole recording, replayed through everything that asks a host: pools, the datasets below the
// last one, trees, paths, imports. Through a batching executor the datasets are the same.

#include "executors/BatchingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <algorithm>
#include <array>
#include <set>

using namespace zfslib;
using Node = ZfsDatasetEnumerator::Node;

namespace {

const std::initializer_list<std::string_view> documentedErrors = {
    "Failed to parse zpool output:\n",
    "Parse zpool state failed: ",
    "Incorrect zpool state value: ",
    "Empty line inappropriate!",
    "Error. Empty virtual device parsed in zpool.",
    "Failed to parse zpool get all",
    "Failed to parse space value: [",
    "Failed to parse zfs output:\n",
    "Failed to parse zfs get: raw size [",
    "Failed to parse an inherited section of ZFS properties: parent not found.",
    "Failed to parse 'df' output: \n ",
    "Unable to resolve filesystem for path [/].",
    "Cannot find a zpool for [",
    "[", // PATH "] is not a ZFS file system."
};

/// A command failed: no error of the library's, so it is to come out as it went in.
class CommandFailed : public std::exception {
public:
    explicit CommandFailed(std::string message) : message_(std::move(message)) {}
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

/// How a step ends, a failed command included; the others go on.
std::string Step(const std::function<std::string()>& step) {
    try {
        return fuzz::Outcome(step, documentedErrors) + "\n";
    } catch (const CommandFailed& failure) {
        return std::string("failed: ") + failure.what() + "\n";
    }
}

/// The recorded host; of a command that was recorded several times, the first answer.
CommandExecutor HostExecutor(const std::string& recording) {
    std::vector<executors::Exchange> exchanges;
    std::set<std::string> commands;
    for (executors::Exchange& exchange : executors::ParseRecording(recording, "fuzz").exchanges)
        if (commands.insert(exchange.command).second)
            exchanges.push_back(std::move(exchange));
    const executors::Replayer replayer(std::move(exchanges), "fuzz");
    return [answer = replayer.Executor()](const std::string& command) {
        constexpr std::ptrdiff_t mostRows = 12; // or some kilobytes of input would take minutes
        try {
            std::string output = answer(command);
            if (command.find(" list ") != std::string::npos &&
                std::count(output.begin(), output.end(), '\n') > mostRows)
                throw std::runtime_error("too many rows");
            return output;
        } catch (const std::runtime_error& error) {
            throw CommandFailed(error.what());
        }
    };
}

/// Name, property, value, source.
using GetRow = std::array<std::string, 4>;

/// The rows of an answer of `zfs get all` about one dataset; none when the tool could not have
/// printed it: every cell stands below its column's head.
std::vector<GetRow> GenuineRows(std::string_view answer, const std::string& name) {
    std::vector<GetRow> rows;
    if (answer.empty() || answer.back() != '\n')
        return {};
    const std::string_view header = util::ConsumeLine(answer);
    if (util::split(header) != std::vector<std::string>{"NAME", "PROPERTY", "VALUE", "SOURCE"})
        return {};
    std::array<std::size_t, 5> columns{0, header.find("PROPERTY"), header.find("VALUE"),
                                       header.find("SOURCE"), std::string_view::npos};
    while (!answer.empty()) {
        const std::string_view line = util::ConsumeLine(answer);
        GetRow& row = rows.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (line.size() <= columns[i])
                return {};
            row[i] = line.substr(columns[i], columns[i + 1] - columns[i]);
            if (i == 3)
                break;
            if (!util::str_is_finishes_with(row[i], "  "))
                return {};
            row[i].erase(row[i].find_last_not_of(' ') + 1);
        }
        const bool isOneWord = util::split(row[1]) == std::vector<std::string>{row[1]};
        if (row[0] != name || !isOneWord || row[3].front() == ' ' ||
            row[3].find("  ") != std::string::npos)
            return {};
    }
    return rows;
}

/// The same host, which can be asked for the properties of several datasets at once. As with the
/// tool, each column is then as wide as the widest of its cells.
CommandExecutor ManyNamesExecutor(const CommandExecutor& host) {
    return [host](const std::string& command) {
        const std::string getCommand = "/usr/bin/env -i zfs get all ";
        if (!util::str_is_starts_with(command, getCommand))
            return host(command);
        const std::vector<std::string> names = util::split(command.substr(getCommand.size()));
        if (names.size() < 2)
            return host(command);
        std::vector<GetRow> all{{"NAME", "PROPERTY", "VALUE", "SOURCE"}};
        for (const std::string& name : names) {
            const std::vector<GetRow> rows = GenuineRows(host(getCommand + name), name);
            if (rows.empty())
                throw CommandFailed("not what the tool prints");
            all.insert(all.end(), rows.begin(), rows.end());
        }
        std::array<std::size_t, 3> widths{};
        for (const GetRow& row : all)
            for (std::size_t i = 0; i < widths.size(); ++i)
                widths[i] = std::max(widths[i], row[i].size());
        std::string output;
        for (const GetRow& row : all) {
            for (std::size_t i = 0; i < widths.size(); ++i)
                output.append(row[i]).append(widths[i] - row[i].size() + 2, ' ');
            output += row[3] + "\n";
        }
        return output;
    };
}

std::string DumpTree(const Node& node, std::size_t& nodes) {
    ++nodes;
    const std::set<std::string> keys = [&node] {
        std::set<std::string> result;
        for (const auto& [key, child] : node.children)
            result.insert(key);
        return result;
    }();
    std::string text = node.dataset.name + "(";
    for (const std::string& key : keys)
        text += key + "=" + DumpTree(*node.children.at(key), nodes) + " ";
    return text + ")";
}

struct Datasets {
    std::vector<ZfsDataset> list;
    std::string outcome;
};

Datasets Enumerate(const std::string& root, const CommandExecutor& executor) {
    Datasets datasets;
    datasets.outcome = Step([&] {
        auto [list, warnings] = ZfsDatasetEnumerator().Enumerate(root, executor);
        std::string text;
        for (const ZfsDataset& dataset : list)
            text += fuzz::Dump(dataset);
        for (const std::string& warning : warnings)
            text += warning + "\n";
        datasets.list = std::move(list);
        return text;
    });
    return datasets;
}

std::string AskAboutDatasets(const std::string& root, const CommandExecutor& host) {
    Datasets datasets = Enumerate(root, host);
    constexpr executors::BatchingOptions smallBatches{4, 400};
    fuzz::CheckEqual(
        Enumerate(root, executors::BatchingExecutor(ManyNamesExecutor(host), smallBatches)).outcome,
        datasets.outcome, "batching changes nothing");

    std::string text = datasets.outcome;
    for (const ZfsDataset& dataset : datasets.list) {
        const std::string& mountpoint = dataset.properties.mountpoint.GetValue();
        if (dataset.type == ZfsDataset::volume)
            text += ZfsDataset::GetZfsPseudoDevice(dataset.name) + "\n";
        if (!mountpoint.empty())
            text += Step([&] { return GetDatasetForPath(mountpoint); });
    }
    const std::size_t count = datasets.list.size();
    std::size_t nodes = 0;
    text += DumpTree(ZfsDatasetEnumerator::GrowTree(std::move(datasets.list)), nodes);
    fuzz::Check(nodes <= std::max<std::size_t>(count, 1), "a dataset is in the tree once");
    return text + "\n";
}

std::string AskHost(const CommandExecutor& host) {
    std::string root = "tank"; // of the datasets, unless there is a pool
    std::string text = Step([&] {
        std::string pools;
        for (const Zpool& pool : ZpoolEnumerator::Enumerate(host)) {
            pools += fuzz::Dump(pool) + fuzz::DumpSizes(pool) + "\n";
            root = pool.name;
        }
        return pools;
    });
    text += AskAboutDatasets(root, host);
    for (const char* path : {"/", "/tank/home/file"})
        text += Step([path] { return fuzz::Dump(GetAssociatedZpool(path)); });
    text += Step([&host] {
        std::string pools;
        for (const Pool4Import& pool : EnumerateZpool4Import(host))
            pools += pool.name + "=" + pool.id + " ";
        return pools;
    });
    return text + (IsZfsToolsInstalled() ? "installed" : "not installed");
}

} // namespace

void FuzzOne(const std::string& text) {
    CommandExecutor host;
    try {
        host = HostExecutor(text);
    } catch (const std::runtime_error&) {
        return; // no recording
    }
    Executors::SetDfExecutor(host);
    Executors::SetZpoolExecutor(host);
    Executors::SetProcessExecutor(host);
    const std::string outcome = AskHost(host);
    fuzz::CheckEqual(AskHost(host), outcome, "the same host gives the same result");
}
