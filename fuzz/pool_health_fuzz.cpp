// An output of `zpool status`, read for the health of a pool: whatever it is, no error, and no
// word of it is lost.

#include "fuzz/fuzz.h"
#include "zfstools/PoolHealth.h"

using namespace zfslib;

namespace {

using Device = PoolHealth::Device;

/// Everything that was kept, and a check of what must hold.
class Walk {
public:
    void Add(const std::string& part) { text += part + "\n"; }

    void Add(const Device& device, bool isRoot = false) {
        Add(device.name);
        fuzz::Check(!device.name.empty(), "a device has a name");
        Add(device.stateText);
        for (const auto* errors : {&device.read, &device.write, &device.checksum, &device.slow})
            if (*errors)
                Add((*errors)->text);
        Add(device.note);
        const bool isGroup = device.type == PoolHealth::DeviceType::Group ||
                             (device.type >= PoolHealth::DeviceType::Mirror &&
                              device.type <= PoolHealth::DeviceType::Spare);
        fuzz::Check(isRoot || isGroup == !device.devices.empty(), "a group has devices below it");
        fuzz::Check(device.draid.has_value() == (device.type == PoolHealth::DeviceType::Draid) ||
                        isRoot,
                    "a draid has a geometry");
        for (const Device& member : device.devices)
            Add(member);
    }

    void Add(const PoolHealth& health) {
        for (const std::string* part :
             {&health.name, &health.stateText, &health.status, &health.action, &health.see,
              &health.remove, &health.checkpoint, &health.expand, &health.errors})
            Add(*part);
        for (const PoolHealth::Text& other : health.otherTexts)
            Add(other.title + ": " + other.text);
        for (const PoolHealth::Scan& scan : health.scans)
            Add(scan.text);
        if (health.root)
            Add(*health.root, true);
        for (const PoolHealth::Section& section : health.sections) {
            Add(section.name);
            for (const Device& device : section.devices)
                Add(device);
        }
        for (const std::string& line : health.damagedFiles)
            Add(line);
        for (const std::string& line : health.unread)
            Add(line);
    }

    std::string text;
};

bool IsTitle(std::string_view word) {
    return word.size() > 1 && word.back() == ':';
}

} // namespace

void FuzzOne(const std::string& text) {
    const std::string kept = fuzz::RepeatedOutcome(
        [&text] {
            Walk walk;
            walk.Add(PoolHealth::Parse(text, PoolHealth::Clock::Utc));
            return walk.text;
        },
        {});
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = util::ConsumeLine(rest);
        std::string_view header = line;
        const std::string_view first = util::ConsumeWord(header);
        if ((first == "NAME" && util::ConsumeWord(header) == "STATE") || first == "DATASET")
            continue;
        if (IsTitle(first))
            util::ConsumeWord(line);
        for (std::string_view word = util::ConsumeWord(line); !word.empty();
             word = util::ConsumeWord(line))
            fuzz::Check(kept.find(word) != std::string::npos, "no word is lost");
    }
}
