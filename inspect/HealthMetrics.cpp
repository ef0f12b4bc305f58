#include "inspect/Escape.h"
#include "inspect/HealthView.h"

#include <locale>
#include <set>
#include <sstream>
#include <utility>

namespace inspect {
namespace {

using zfslib::PoolHealth;
using Device = PoolHealth::Device;
using Labels = std::vector<std::pair<const char*, std::string>>;

/// A label's value: names may hold anything, and the format is UTF-8 with escapes of its own.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : Escape(text)) {
        if (c == '\\' || c == '"')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string LabelsText(const Labels& labels) {
    std::string text;
    for (const auto& [name, value] : labels)
        text += (text.empty() ? "{" : ",") + std::string(name) + "=" + Quoted(value);
    return text + "}";
}

template <typename Integer>
std::string Number(Integer value) {
    return std::to_string(value);
}

std::string Number(double value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << value;
    return text.str();
}

/// A metric with its samples, which have to stand together.
class Metric {
public:
    Metric(std::string name, std::string help) : name_(std::move(name)), help_(std::move(help)) {}

    template <typename Value>
    void Add(const Labels& labels, const std::optional<Value>& value) {
        if (value)
            samples_ += name_ + LabelsText(labels) + " " + Number(*value) + "\n";
    }

    /// All are gauges: the counts of errors go back to zero when they are cleared, and the older
    /// format has no other type that fits.
    void Print(std::ostream& out) const {
        if (!samples_.empty())
            out << "# TYPE " << name_ << " gauge\n# HELP " << name_ << ' ' << help_ << '\n'
                << samples_;
    }

private:
    std::string name_;
    std::string help_;
    std::string samples_;
};

std::optional<double> Ratio(const std::optional<std::uint64_t>& percent) {
    if (!percent)
        return std::nullopt;
    return static_cast<double>(*percent) / 100;
}

std::optional<std::uint64_t> Value(const std::optional<PoolHealth::Amount>& amount) {
    return amount ? amount->value : std::nullopt;
}

constexpr std::optional<std::uint64_t> one = 1;

struct Metrics {
    Metric healthy{"zfs_pool_healthy", "Whether the health of the pool is known and good."};
    Metric state{"zfs_pool_state", "1 for the state that the pool is in."};
    Metric size{"zfs_pool_size_bytes", "Size of the pool."};
    Metric allocated{"zfs_pool_allocated_bytes", "Allocated space."};
    Metric free{"zfs_pool_free_bytes", "Free space."};
    Metric capacity{"zfs_pool_capacity_ratio", "Allocated space, of 1."};
    Metric fragmentation{"zfs_pool_fragmentation_ratio", "Fragmentation of the free space, of 1."};
    Metric dedup{"zfs_pool_dedup_ratio", "Deduplication ratio."};
    Metric dataErrors{"zfs_pool_data_errors", "Data errors that are known."};
    Metric scrubAge{"zfs_pool_scrub_age_seconds", "Time since the last scrub finished."};
    Metric progress{"zfs_pool_scan_progress_ratio", "Part of the running scan that is done, of 1."};
    Metric deviceState{"zfs_device_state", "1 for the state that the device is in."};
    Metric read{"zfs_device_read_errors", "Read errors since they were cleared."};
    Metric write{"zfs_device_write_errors", "Write errors since they were cleared."};
    Metric checksum{"zfs_device_checksum_errors", "Checksum errors since they were cleared."};
    Metric slow{"zfs_device_slow_ios", "I/O operations that took too long."};

    void Add(const HealthEntry& entry) {
        const Labels pool = {{"pool", entry.name}};
        const bool isHealthy = entry.reasons.empty() && entry.error.empty();
        healthy.Add(pool, std::optional<std::uint64_t>(isHealthy ? 1 : 0));
        const std::string stateText = entry.health ? entry.health->stateText : entry.space.health;
        if (!stateText.empty())
            state.Add({{"pool", entry.name}, {"state", stateText}}, one);
        size.Add(pool, entry.space.size);
        allocated.Add(pool, entry.space.allocated);
        free.Add(pool, entry.space.free);
        capacity.Add(pool, Ratio(entry.space.capacity));
        fragmentation.Add(pool, Ratio(entry.space.fragmentation));
        dedup.Add(pool, entry.space.dedupratio);
        scrubAge.Add(pool, entry.scrubAge);
        if (entry.health)
            Add(entry.name, *entry.health);
    }

    void Print(std::ostream& out) const {
        for (const Metric* metric :
             {&healthy, &state, &size, &allocated, &free, &capacity, &fragmentation, &dedup,
              &dataErrors, &scrubAge, &progress, &deviceState, &read, &write, &checksum, &slow})
            metric->Print(out);
        out << "# EOF\n";
    }

private:
    void Add(const std::string& pool, const PoolHealth& health) {
        dataErrors.Add({{"pool", pool}}, health.dataErrors);
        for (const PoolHealth::Scan& scan : health.scans)
            if (scan.percentDone) {
                const bool isScrub = scan.kind == PoolHealth::Scan::Kind::Scrub;
                progress.Add({{"pool", pool},
                              {"scan", isScrub ? "scrub" : "resilver"},
                              {"device", scan.device}},
                             std::optional<double>(*scan.percentDone / 100));
            }
        std::set<std::string> seen;
        for (const PoolHealth::Section& section : SectionsOf(health))
            for (const Device& device : section.devices)
                Add({{"pool", pool}, {"section", section.name}}, "", device, seen);
    }

    /// Devices are told apart by the groups that they stand in. Where that is not enough (old tools
    /// call every group of a pool "raidz1") they are numbered, for no sample may be there twice.
    void Add(const Labels& section, const std::string& path, const Device& device,
             std::set<std::string>& seen) {
        const std::string place = section.back().second + " " + path + " ";
        std::string name = device.name;
        for (int number = 2; !seen.insert(place + name).second; ++number)
            name = device.name + "#" + std::to_string(number);
        Labels labels = section;
        labels.emplace_back("group", path);
        labels.emplace_back("device", name);
        read.Add(labels, Value(device.read));
        write.Add(labels, Value(device.write));
        checksum.Add(labels, Value(device.checksum));
        slow.Add(labels, Value(device.slow));
        labels.emplace_back("state", device.stateText);
        deviceState.Add(labels, one);
        const std::string pathBelow = (path.empty() ? "" : path + "/").append(name);
        for (const Device& member : device.devices)
            Add(section, pathBelow, member, seen);
    }
};

} // namespace

void PrintHealthMetrics(std::ostream& out, const HealthReport& report) {
    Metrics metrics;
    for (const HealthEntry& entry : report.pools)
        metrics.Add(entry);
    metrics.Print(out);
}

} // namespace inspect
