// An output of `zpool status` for one pool.

#include "fuzz/fuzz.h"
#include "zfstools/ZpoolsEnumerator.h"

using namespace zfslib;

namespace {

void CheckDevices(const std::vector<Zpool::VirtualDevice>& devices, const std::string& text) {
    for (const Zpool::VirtualDevice& device : devices) {
        fuzz::Check(util::split(device.name) == std::vector{device.name}, "a name is one word");
        fuzz::Check(!device.devices.empty(), "a virtual device has devices");
        const bool isGroup = device.type != Zpool::VirtualDeviceType::Disk &&
                             device.type != Zpool::VirtualDeviceType::File;
        fuzz::Check(isGroup || device.devices.front().name == device.name,
                    "a device that is no group refers to itself");
        for (const Zpool::DeviceReference& reference : device.devices)
            fuzz::Check(text.find(reference.name) != std::string::npos, "names are the tool's");
    }
}

} // namespace

void FuzzOne(const std::string& text) {
    ZpoolEnumerator::Config config;
    const std::string outcome = fuzz::RepeatedOutcome(
        [&] {
            config = ZpoolEnumerator::Config();
            ZpoolEnumerator::ParseZpoolConfig(text, config);
            return fuzz::DumpConfig(config);
        },
        {"Parse zpool state failed: ", "Incorrect zpool state value: ", "Empty line inappropriate!",
         "Error. Empty virtual device parsed in zpool."});
    for (const auto* section :
         {&config.devices, &config.logs, &config.caches, &config.metas, &config.spares})
        CheckDevices(*section, text);

    // What was read before does not matter, unless there is no device table at all.
    if (fuzz::IsError(outcome) || config.devices.empty())
        return;
    ZpoolEnumerator::Config used;
    ZpoolEnumerator::ParseZpoolConfig(" state: OFFLINE\nconfig:\n\tp\n\t  old\n", used);
    ZpoolEnumerator::ParseZpoolConfig(text, used);
    fuzz::CheckEqual(fuzz::DumpConfig(used), outcome, "an earlier configuration is replaced");
}
