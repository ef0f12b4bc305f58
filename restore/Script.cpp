#include "restore/Script.h"

#include "exc/exc.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace zfslib::restore {
namespace {

/// What no shell acts upon wherever it stands in a word.
bool IsPlain(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_-./,:@%+=").find(c) != std::string_view::npos;
    });
}

/// A word of a script, on one line.
std::string ScriptWord(std::string_view text) {
    if (text.find('\0') != std::string_view::npos)
        throw exc::CRuntimeExc("A word of the plan has a NUL in it, behind [%1].",
                               text.substr(0, text.find('\0')));
    if (IsPlain(text))
        return std::string(text);
    std::string word;
    while (true) {
        const std::size_t newline = text.find('\n');
        if (newline != 0 && !(text.empty() && !word.empty()))
            word += util::ShellWord(text.substr(0, newline));
        if (newline == std::string_view::npos)
            return word;
        word += "\"$nl\"";
        text.remove_prefix(newline + 1);
    }
}

/// As much of a text as a comment has room for, in printable ASCII: nothing in it ends the comment
/// or acts on a terminal, whatever its encoding.
std::string Shown(std::string_view text) {
    constexpr std::size_t longest = 400;
    constexpr std::string_view digits = "0123456789abcdef";
    std::string shown;
    for (const char c : text.substr(0, longest)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            shown += "\\n";
        else if (c == '\t')
            shown += "\\t";
        else if (c == '\\')
            shown += "\\\\";
        else if (byte >= 0x20 && byte < 0x7F)
            shown += c;
        else
            (shown += "\\x") += {digits[byte >> 4U], digits[byte & 0x0FU]};
    }
    return text.size() > longest ? shown + "..." : shown;
}

std::string ShownValue(const std::optional<std::string>& value) {
    return value && !value->empty() ? Shown(*value) : value ? "\"\"" : "-";
}

std::string_view ActionText(Action action) {
    switch (action) {
    case Action::Create:
        return "create";
    case Action::Import:
        return "import";
    case Action::Add:
        return "add";
    case Action::Set:
        return "set";
    case Action::Inherit:
        return "inherit";
    case Action::LoadKey:
        return "load the key";
    case Action::ChangeKey:
        return "use the key of the dataset above";
    case Action::Mount:
        return "mount";
    case Action::Unmount:
        return "unmount";
    case Action::Share:
        return "share";
    case Action::Hold:
        return "hold";
    case Action::Allow:
        return "allow";
    }
    return {};
}

/// The disks of the plan, each once, in its order.
std::vector<std::string_view> DisksOf(const Plan& plan) {
    std::vector<std::string_view> disks;
    for (const Step& step : plan.steps)
        for (const std::size_t place : step.diskWords)
            if (const std::string& disk = step.words.at(place);
                std::find(disks.begin(), disks.end(), disk) == disks.end())
                disks.emplace_back(disk);
    return disks;
}

class ScriptWriter {
public:
    explicit ScriptWriter(const Plan& plan) : plan_(plan), disks_(DisksOf(plan)) {}

    std::string Write(std::string_view about) && {
        WriteHead(about);
        WriteDisks();
        script_ += functions;
        const auto data =
            std::partition_point(plan_.steps.begin(), plan_.steps.end(),
                                 [](const Step& step) { return IsBeforeData(step.phase); });
        const auto before = static_cast<std::size_t>(data - plan_.steps.begin());
        WriteSteps("prepare", 0, before);
        WriteSteps("finish", before, plan_.steps.size());
        WriteRest();
        script_ += end;
        return std::move(script_);
    }

private:
    // The script itself may be the input. So a step gets none, and the shell has read all of it,
    // the braces around the end included, before it runs any; of one that was cut short it runs
    // nothing, and the trap of the head says so where the cut left no error of its own.
    static constexpr std::string_view functions = R"sh(
usage() {
    printf 'usage: sh %s [prepare|finish] [from STEP]\n' "$0" >&2
    exit 2
}
step() {
    number=$1
    shift
    [ "$number" -ge "$first" ] || return 0
    "$@" </dev/null && return 0
    failed "$?"
}
# A name that the host does not know makes the tool explain itself, and end with 0.
allow() {
    number=$1
    shift
    [ "$number" -ge "$first" ] || return 0
    said=$("$@" </dev/null) && [ -z "$said" ] && return 0
    printf '%s\n' "${said##*"$nl"}" >&2
    failed 1
}
ask() {
    number=$1
    [ "$number" -ge "$first" ] || return 0
    printf 'step %s asks for %s\n' "$number" "$2" >&2
    shift 2
    "$@" && return 0
    failed "$?"
}
failed() {
    printf '%s: step %s of %s failed with status %s:\n' "$0" "$number" "$count" "$1" >&2
    if [ -f "$0" ] && [ -r "$0" ]; then
        while IFS= read -r line; do
            case $line in "# $number: "*)
                printf '    %s\n' "$line" >&2
                break
                ;;
            esac
        done <"$0"
    fi
    printf 'No step behind it was run. Make the plan again; or mend it, and go on with\n' >&2
    printf '    sh %s%s from %s    to run this step again\n' "$0" "${part:+ $part}" "$number" >&2
    printf '    sh %s%s from %s    if you did by hand what it was to do\n' \
        "$0" "${part:+ $part}" "$((number + 1))" >&2
    exit 1
}
)sh";

    static constexpr std::string_view end = R"sh(
{
trap - EXIT
part='' first=1
case ${1-} in prepare | finish)
    part=$1
    shift
    ;;
esac
if [ "$#" -eq 2 ] && [ "$1" = from ]; then
    case $2 in '' | 0* | *[!0-9]* | ??????????*) usage ;; esac
    first=$2
    [ "$first" -le "$((count + 1))" ] || usage
elif [ "$#" -ne 0 ]; then
    usage
fi
[ "$part" = finish ] || prepare
[ "$part" = prepare ] || finish
if [ "$part" = prepare ]; then
    printf 'Now the data comes back, and then: sh %s finish\n' "$0"
fi
if [ "$rest" -ne 0 ]; then
    printf 'Not all is as it was: %s things cannot be done, see the end of %s\n' "$rest" "$0" >&2
fi
exit 0
}
)sh";

    void Line(std::string_view text) { script_.append(text).append("\n"); }
    void Comment(std::string_view text) { script_.append("# ").append(text).append("\n"); }

    void WriteHead(std::string_view about) {
        Line("#!/bin/sh");
        Comment(Shown(about));
        Line("#");
        Comment("sh FILE               all steps, one after the other, up to the first that fails");
        Comment("sh FILE prepare       those before the data comes back");
        Comment("sh FILE finish        those after it");
        Comment("sh FILE ... from 17   go on with step 17");
        Line("#");
        Comment(
            util::str_format("%1 steps. What they do not mend stands behind them: %2 things that "
                             "cannot be done, %3 to mind.",
                             plan_.steps.size(), plan_.cannot.size(), plan_.mentioned.size()));
        Line("");
        Line("trap 'echo \"$0 is cut short: nothing was run\" >&2; exit 1' EXIT");
        Line("PATH=${PATH:-/usr/bin:/bin}:/usr/sbin:/sbin LC_ALL=C");
        Line("export PATH LC_ALL");
        Line("nl='\n'");
        Line("count=" + util::str(plan_.steps.size()) + " rest=" + util::str(plan_.cannot.size()));
    }

    void WriteDisks() {
        if (disks_.empty())
            return;
        Line("");
        Comment(
            "The disks and files that pools are made of. Look at each before you run anything.");
        for (std::size_t i = 0; i < disks_.size(); ++i)
            Line(DiskName(i) + "=" +
                 (IsPlain(disks_[i]) ? util::ShellWord(disks_[i]) : ScriptWord(disks_[i])));
    }

    static std::string DiskName(std::size_t index) { return "disk" + util::str(index + 1); }

    void WriteSteps(std::string_view function, std::size_t first, std::size_t last) {
        Line("");
        Line(std::string(function) + "() {");
        if (first == last)
            Line(":");
        for (std::size_t i = first; i < last; ++i) {
            const Step& step = plan_.steps[i];
            const std::string number = util::str(i + 1);
            Comment(number + ": " + DescribeStep(step));
            const std::string runner = step.action == Action::Allow ? "allow " : "step ";
            Line((step.asksFor.empty()
                      ? runner + number
                      : "ask " + number + " " + util::ShellWord(Shown(step.asksFor))) +
                 Words(step));
        }
        Line("}");
    }

    [[nodiscard]] std::string Words(const Step& step) const {
        std::string words;
        for (std::size_t i = 0; i < step.words.size(); ++i) {
            const bool isDisk =
                std::find(step.diskWords.begin(), step.diskWords.end(), i) != step.diskWords.end();
            const auto disk = std::find(disks_.begin(), disks_.end(), step.words[i]);
            words += isDisk
                         ? " \"$" + DiskName(static_cast<std::size_t>(disk - disks_.begin())) + '"'
                         : " " + ScriptWord(step.words[i]);
        }
        return words;
    }

    void WriteRest() {
        if (!plan_.cannot.empty())
            Line("");
        for (const Cannot& cannot : plan_.cannot)
            Comment("cannot: " + Shown(cannot.object) +
                    (cannot.property.empty() ? "" : ", " + Shown(cannot.property)) + ": " +
                    (cannot.saved ? "saved " + ShownValue(cannot.saved) + ": " : "") +
                    Shown(cannot.reason));
        if (!plan_.mentioned.empty())
            Line("");
        for (const Mention& mention : plan_.mentioned)
            Comment("mind: " + Shown(mention.object) + ": " + Shown(mention.text));
    }

    const Plan& plan_;
    std::vector<std::string_view> disks_;
    std::string script_;
};

} // namespace

std::string PlanScript(const Plan& plan, std::string_view about) {
    return ScriptWriter(plan).Write(about);
}

std::string DescribeStep(const Step& step) {
    std::string text = Shown(step.object);
    if (!step.device.empty())
        text += " " + Shown(step.device);
    text += ": " + std::string(ActionText(step.action));
    if (step.action == Action::Hold || step.action == Action::Allow)
        for (std::size_t i = 2; i + 1 < step.words.size(); ++i)
            text += " " + Shown(step.words[i]);
    const bool isOfProperty = step.action == Action::Set || step.action == Action::Inherit;
    if (isOfProperty)
        text += " " + Shown(step.property);
    if (isOfProperty && (step.was || step.willBe))
        text +=
            ": " + ShownValue(step.was) + " -> " + (step.willBe ? ShownValue(step.willBe) : "?");
    if (!step.why.empty())
        text += "; " + Shown(step.why);
    return text;
}

} // namespace zfslib::restore
