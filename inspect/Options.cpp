#include "inspect/Options.h"

#include "inspect/Operands.h"
#include "util/str.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <map>
#include <numeric>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace inspect {
namespace {

constexpr int usageError = 2;

/// Options are made from the command line in this form; the rest of the program sees Options.
struct CommandLine {
    Options options;
    std::vector<std::string> types;
    bool allProperties = false;
    bool changedProperties = false;
    std::vector<std::string> renames; ///< OLD=NEW
    std::vector<std::string> disks;   ///< OLD=NEW
};

CLI::Validator Checked(std::string (*refused)(const std::string&)) {
    return {[refused](std::string& operand) {
                const std::string reason = refused(operand);
                return reason.empty() ? reason : "[" + operand + "] is refused: " + reason;
            },
            ""};
}

std::string RefusedNumber(const std::string& text) {
    return util::str_is_integer(text) ? "" : "it is not a number of digits alone";
}

std::string RefusedJobs(const std::string& text) {
    constexpr std::size_t mostDigits = 2;
    return util::str_is_integer(text) && text.size() <= mostDigits && text != "0" && text != "00"
               ? ""
               : "it is not a number from 1 to 99";
}

/// The two sides of "OLD=NEW": neither a dataset nor, as a rule, a path has a "=" in it.
std::pair<std::string, std::string> Sides(const std::string& text) {
    const std::size_t sign = text.find('=');
    return {text.substr(0, sign), sign == std::string::npos ? "" : text.substr(sign + 1)};
}

std::string RefusedDisk(const std::string& text) {
    const auto [old, replacement] = Sides(text);
    return old.empty() || replacement.empty() || replacement.front() == '-'
               ? "it is not OLD=NEW with two disks"
               : "";
}

std::string RefusedRename(const std::string& text) {
    const auto [old, replacement] = Sides(text);
    const std::string reason = RefusedRoot(old);
    return reason.empty() ? RefusedRoot(replacement) : reason;
}

/// Errors: CLI::ValidationError when one side is given twice.
std::map<std::string, std::string> Pairs(const std::vector<std::string>& texts) {
    std::map<std::string, std::string> pairs;
    for (const std::string& text : texts)
        if (!pairs.insert(Sides(text)).second)
            throw CLI::ValidationError("[" + text + "] is refused: [" + Sides(text).first +
                                       "] has another one already");
    return pairs;
}

/// As many commands at a time as there are cores, at most 4.
std::size_t DefaultJobs() {
    constexpr std::size_t most = 4;
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, most);
}

/// Adds a command; its operands, if it takes any, are added by `AddOperands`.
CLI::App* AddCommand(CLI::App& app, CommandLine& line, Command command, const std::string& name,
                     const std::string& description) {
    CLI::App* sub = app.add_subcommand(name, description)->group("Commands");
    sub->fallthrough(); // the common options may also stand behind the command
    sub->footer("The options of every command (zfsinspect --help) may stand here as well.");
    sub->callback([&line, command] { line.options.command = command; });
    return sub;
}

CLI::Option* AddOperands(CLI::App* sub, CommandLine& line, const std::string& name,
                         const std::string& description,
                         std::string (*refused)(const std::string&)) {
    return sub->add_option(name, line.options.operands, description)
        ->check(Checked(refused))
        ->type_name("");
}

void AddCommonOptions(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "zfsinspect " ZFSINSPECT_VERSION);
    CLI::Option* replay = app.add_option("--replay", options.replay,
                                         "Answer from the recording FILE; no command is run")
                              ->type_name("FILE");
    app.add_option("--record", options.record,
                   "Append every command and its answer to the recording FILE")
        ->type_name("FILE")
        ->excludes(replay);
    app.add_flag("--record-anywhere", options.recordAnywhere,
                 "Record also where another user could have put FILE")
        ->excludes(replay);
    app.add_option("--limit", options.limit,
                   "Refuse an answer, or a recording, of more than MIB mebibytes (default 1024, a "
                   "recording 4096)")
        ->type_name("MIB")
        ->check(Checked(RefusedNumber));
    CLI::Option* host =
        app.add_option("--host", options.host, "Run the commands on another host, over ssh")
            ->type_name("[USER@]HOST")
            ->check(Checked(RefusedHost))
            ->excludes(replay);
    app.add_option("--ssh-option", options.sshOptions, "Give \"-o OPTION\" to ssh; may be repeated")
        ->type_name("OPTION")
        ->allow_extra_args(false)
        ->needs(host);
    app.add_option("--timeout", options.timeoutSeconds,
                   "Kill a command that takes longer; 0: never (default 0)")
        ->type_name("SECONDS")
        ->check(Checked(RefusedNumber));
    app.add_option("--batch", options.batch,
                   "Ask for N datasets' properties at a time; 0: one by one, as --replay does "
                   "(default 256)")
        ->type_name("N")
        ->check(Checked(RefusedNumber));
    options.jobs = DefaultJobs();
    app.add_option("--jobs", options.jobs,
                   "Run up to N commands at a time, ahead of what is read; 1: one after the other "
                   "(default: the cores, at most 4)")
        ->type_name("N")
        ->check(Checked(RefusedJobs));
    app.add_flag("--json", options.json, "Print one JSON document, sizes in bytes");
    app.add_flag("--verbose", options.verbose, "Write the library's log to standard error");
}

void AddHealth(CLI::App& app, CommandLine& line) {
    Options& options = line.options;
    CLI::App* health = AddCommand(app, line, Command::Health, "health",
                                  "Say which pools are not healthy, why, and what to do; the exit "
                                  "status is 3 if one is not");
    AddOperands(health, line, "POOL", "Only these pools", RefusedPool);
    health->add_flag("--all", options.allDevices, "Show every device");
    health
        ->add_option("--capacity", options.limits.capacityPercent,
                     "A pool this full is not healthy (default 90)")
        ->type_name("PERCENT")
        ->check(Checked(RefusedNumber));
    health
        ->add_option(
            "--scrub-age", options.limits.scrubAgeDays,
            "A pool that was not scrubbed for so long is not healthy (default: never mind)")
        ->type_name("DAYS")
        ->check(Checked(RefusedNumber));
    health
        ->add_flag("--metrics", options.metrics,
                   "Print OpenMetrics text, for node_exporter's textfile collector")
        ->excludes(app.get_option("--json"));
}

void AddPlan(CLI::App& app, CommandLine& line) {
    Options& options = line.options;
    CLI::App* plan = AddCommand(app, line, Command::Plan, "plan",
                                "Show what puts a saved state back, and change nothing");
    AddOperands(plan, line, "ROOT", "Only these saved datasets, and all below", RefusedRoot);
    plan->add_option("--saved", options.saved, "The recording of a state: --record FILE state ROOT")
        ->type_name("FILE")
        ->required();
    plan->add_option("--rename", line.renames,
                     "Put a saved pool or dataset under another name; may be repeated")
        ->type_name("OLD=NEW")
        ->allow_extra_args(false)
        ->check(Checked(RefusedRename));
    plan->add_option("--disk", line.disks,
                     "Make a pool of the disk NEW in place of OLD; may be repeated")
        ->type_name("OLD=NEW")
        ->allow_extra_args(false)
        ->check(Checked(RefusedDisk));
    plan->add_flag("--script", options.script, "Print a script for sh that runs the plan")
        ->excludes(app.get_option("--json"));
    plan->add_flag("--exit-code", options.withExitCode,
                   "End with 3 when there is something to do, 4 when only what cannot be done");
}

void AddCommands(CLI::App& app, CommandLine& line) {
    CLI::App* pools =
        AddCommand(app, line, Command::Pools, "pools", "Show the pools: state, space and devices");
    AddOperands(pools, line, "POOL", "Only these pools", RefusedPool);
    pools->add_flag("--properties", line.allProperties, "Also show every property that was read");

    AddHealth(app, line);

    AddCommand(app, line, Command::Tools, "tools", "Say whether the ZFS tools are installed");

    CLI::App* datasets =
        AddCommand(app, line, Command::Datasets, "datasets", "Show the datasets below ROOT");
    AddOperands(datasets, line, "ROOT", "A pool or dataset", RefusedDataset)
        ->expected(1)
        ->required();
    datasets->add_flag("--flat", line.options.flat, "A table sorted by name in place of the tree");
    datasets
        ->add_option("--type", line.types,
                     "Only these, divided by commas (fs, snap and vol will do); without "
                     "filesystems there is no tree")
        ->type_name("TYPE,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember({"filesystem", "snapshot", "volume", "fs", "snap", "vol"}));
    CLI::Option* all = datasets->add_flag(
        "--properties", line.allProperties,
        "Also show every property that was read, the quotas and the user properties");
    datasets
        ->add_flag("--changed", line.changedProperties,
                   "Also show the properties that a restore has to set again, and the quotas")
        ->excludes(all);

    AddOperands(AddCommand(app, line, Command::Volume, "volume", "Show a volume's device"), line,
                "NAME", "A volume", RefusedDataset)
        ->expected(1)
        ->required();
    AddOperands(AddCommand(app, line, Command::Locate, "locate",
                           "Show the dataset and the pool that hold each PATH"),
                line, "PATH", "Absolute paths", RefusedPath)
        ->required();
    CLI::App* state = AddCommand(app, line, Command::State, "state",
                                 "Show the exact state of all below ROOT: what a restore needs");
    AddOperands(state, line, "ROOT", "Pools or datasets", RefusedRoot)->required();
    state->add_flag("--all", line.options.withAll, "Show every property, not only what was set");
    AddPlan(app, line);
    AddCommand(app, line, Command::Importable, "importable", "List the pools that can be imported");
}

/// CLI11 takes an operand "[a,b]" apart, as a list; no name and no absolute path looks like that.
void RefuseBrackets(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!argument.empty() && argument.front() == '[' && argument.back() == ']')
            throw CLI::ValidationError(std::string(argument) + " is refused: it is in brackets");
    }
}

/// The type of a word of the tools', or of one of their short ones.
zfslib::ZfsDataset::Type TypeFromWord(const std::string& word) {
    if (word == "fs")
        return zfslib::ZfsDataset::filesystem;
    if (word == "snap")
        return zfslib::ZfsDataset::snapshot;
    if (word == "vol")
        return zfslib::ZfsDataset::volume;
    return zfslib::ZfsDataset::StringToType(word);
}

Options Finish(CommandLine&& line) {
    Options options = std::move(line.options);
    if (!line.types.empty())
        options.types.clear();
    for (const std::string& text : line.types) {
        const auto type = TypeFromWord(text);
        if (std::find(options.types.begin(), options.types.end(), type) == options.types.end())
            options.types.push_back(type);
    }
    if (line.changedProperties)
        options.properties = PropertyChoice::Changed;
    else if (line.allProperties)
        options.properties = PropertyChoice::Read;
    options.plan.renames = Pairs(line.renames);
    options.plan.disks = Pairs(line.disks);
    if (options.command == Command::Plan)
        options.plan.roots = options.operands;
    return options;
}

/// How many letters have to be changed, added or left out to make one word of the other.
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1); // of the beginnings of b, for one beginning of a
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

/// "; did you mean ...?" with the command that is nearest to the word; empty when none is near.
std::string Suggestion(const CLI::App& app, const std::string& word) {
    constexpr std::size_t longestWord = 32;
    std::size_t nearest =
        word.size() > longestWord ? 0 : std::max<std::size_t>(word.size() / 2, 1) + 1;
    std::string suggestion;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        const std::string& name = command->get_name();
        const bool isBegun = word.size() > 1 && util::str_is_starts_with(name, word);
        const std::size_t distance = isBegun ? 1 : Distance(word, name);
        if (distance >= nearest)
            continue;
        nearest = distance;
        suggestion = "; did you mean \"" + name + "\"?";
    }
    return suggestion;
}

NothingToDo FromError(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream ignored;
    if (app.exit(error, output, ignored) == 0)
        return {0, output.str()};
    if (app.get_subcommands().empty() && error.get_name() == "RequiredError")
        return {usageError, app.remaining().empty()
                                ? "a command is missing"
                                : "[" + app.remaining().front() + "] is no command or option" +
                                      Suggestion(app, app.remaining().front())};
    return {usageError, error.what()};
}

} // namespace

std::variant<Options, NothingToDo> ParseCommandLine(int argc, const char* const* argv) {
    CommandLine line;
    CLI::App app("Shows what the ZFS tools of this host, or of a recorded one, say.", "zfsinspect");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.require_subcommand(1);
    AddCommonOptions(app, line.options);
    AddCommands(app, line);
    try {
        RefuseBrackets(argc, argv);
        app.parse(argc, argv);
        return Finish(std::move(line));
    } catch (const CLI::ParseError& error) {
        return FromError(app, error);
    }
}

} // namespace inspect
