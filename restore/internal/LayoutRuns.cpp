#include "restore/internal/LayoutRuns.h"

#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>

namespace zfslib::restore::internal {
namespace {

using Use = Device::Use;

/// The word that begins the devices of a use in `zpool create`.
const char* WordOf(Use use) {
    switch (use) {
    case Use::Special:
        return "special";
    case Use::Dedup:
        return "dedup";
    case Use::Log:
        return "log";
    case Use::Cache:
        return "cache";
    case Use::Spare:
        return "spare";
    case Use::Normal:
    case Use::Meta:
    case Use::Other:
        break;
    }
    return "";
}

/// How much of a group may fail, in a word that is the same for those which the tool takes beside
/// each other; empty for what it does not look at.
std::string Redundancy(const LayoutGroup& group) {
    if (group.use == Use::Log || !IsNumbered(group.use))
        return {};
    const auto isFile = [](const LayoutDisk& disk) {
        return disk.word.find('/') != std::string::npos &&
               !util::str_is_starts_with(disk.word, "/dev/");
    };
    const auto files = std::count_if(group.disks.begin(), group.disks.end(), isFile);
    if (files != 0 && static_cast<std::size_t>(files) != group.disks.size())
        return "disks and files";
    if (group.word.empty())
        return files == 0 ? "disk" : "file";
    if (group.word == "mirror")
        return std::to_string(group.disks.size() - 1);
    // raidz2, draid3:4d:8c:1s
    constexpr std::size_t digit = 5;
    return group.word.size() > digit ? std::string(1, group.word[digit]) : "1";
}

} // namespace

bool IsNumbered(Use use) {
    return use != Use::Cache && use != Use::Spare;
}

std::vector<LayoutRun> RunsOf(const std::vector<LayoutGroup>& groups) {
    std::vector<LayoutRun> runs;
    std::set<std::string> redundancies;
    std::set<unsigned> ashifts;
    const LayoutGroup* before = nullptr;
    for (const LayoutGroup& group : groups) {
        const std::string redundancy = Redundancy(group);
        bool isMixed = redundancy == "disks and files";
        if (!redundancy.empty()) {
            redundancies.insert(redundancy);
            isMixed = isMixed || redundancies.size() > 1;
        }
        const bool isOtherAshift = !runs.empty() && group.ashift && runs.back().ashift &&
                                   group.ashift != runs.back().ashift;
        const bool needsWord = before != nullptr && before->use == group.use &&
                               group.word.empty() && !before->word.empty();
        if (runs.empty() || isOtherAshift || needsWord || (isMixed && !runs.back().mixesRedundancy))
            runs.emplace_back();
        LayoutRun& run = runs.back();
        run.groups.push_back(&group);
        run.mixesRedundancy = run.mixesRedundancy || isMixed;
        if (group.ashift) {
            run.ashift = group.ashift;
            run.mixesAshift =
                !ashifts.empty() && (ashifts.size() > 1 || *ashifts.begin() != *group.ashift);
            ashifts.insert(*group.ashift);
        }
        before = &group;
    }
    return runs;
}

void AddDevices(const LayoutRun& run, Step& step) {
    Use use = Use::Normal;
    for (const LayoutGroup* group : run.groups) {
        if (group->use != use)
            step.words.emplace_back(WordOf(group->use));
        use = group->use;
        if (!group->word.empty())
            step.words.push_back(group->word);
        for (const LayoutDisk& disk : group->disks) {
            step.diskWords.push_back(step.words.size());
            step.words.push_back(disk.word);
        }
    }
}

} // namespace zfslib::restore::internal
