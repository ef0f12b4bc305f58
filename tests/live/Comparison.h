#pragma once

#include "inspect/Json.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/Zpool.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Compares what the library and zfsinspect tell of a host with what the tools say in exact
/// numbers.
namespace live {

/// A property as it is told.
struct ToldProperty {
    std::string value;
    std::optional<std::uint64_t> bytes; ///< of a size that is told as a number as well
    std::string source;                 ///< in the tools' words: "inherited from tank"
    bool failed = false;
};

struct ToldDataset {
    std::string type;
    std::uint64_t used = 0;
    std::optional<std::uint64_t> available; ///< not told of a snapshot
    std::optional<std::uint64_t> usedByRefreservation;
    std::map<std::string, ToldProperty> properties; ///< with the user properties
    std::map<std::string, ToldProperty> quotas;
};

/// A top-level virtual device, as it is told or as it is.
struct Device {
    std::string section; ///< "devices", "logs", "caches", "spares"
    std::string name;
    std::string type;
    std::vector<std::string> members;
};

struct ToldPool {
    std::string state;
    std::uint64_t size = 0;
    std::uint64_t allocated = 0;
    std::map<std::string, ToldProperty> properties;
    std::vector<Device> devices;
};

struct Told {
    std::map<std::string, ToldDataset> datasets;
    std::map<std::string, ToldPool> pools;
    std::vector<std::string> warnings;
    bool isJson = false; ///< which cannot hold every byte, and leaves out the quotas "none"
};

Told TellFromRecords(const std::vector<zfslib::ZfsDataset>& datasets,
                     const std::vector<zfslib::Zpool>& pools, std::vector<std::string> warnings);
Told TellFromJson(const inspect::Json& datasets, const inspect::Json& pools);

/// A property as `get -Hp` prints it.
struct TrueProperty {
    std::string value;
    std::string source;
    bool operator==(const TrueProperty& other) const {
        return value == other.value && source == other.source;
    }
};
using TrueProperties = std::map<std::string, TrueProperty>;

/// What is true of one pool's datasets, and of several pools.
struct Truth {
    std::map<std::string, TrueProperties> datasets;
    std::map<std::string, TrueProperties> pools;
    /// By file system and name; without those whose quotas cannot be read.
    std::map<std::string, std::map<std::string, std::string>> quotas;
    std::map<std::string, std::vector<Device>> devices; ///< by pool

    /// What may change by itself on a host in use.
    [[nodiscard]] bool HasSameProperties(const Truth& other) const {
        return datasets == other.datasets && pools == other.pools;
    }
};

/// Asks the tools for the properties of `root` and all below, and of the pools, whose names divides
/// a blank. No value may hold a tab or a newline.
Truth ReadProperties(const std::string& root, const std::string& pools);
/// Asks the tools for the rest.
void ReadQuotasAndDevices(Truth& truth);

/// How much of what was compared is right.
struct Tally {
    unsigned equal = 0;
    unsigned rounded = 0;                    ///< to the three digits that the tools print
    std::map<std::string, unsigned> leftOut; ///< by the known limit of docs/architecture.md
    std::vector<std::string> wrong;          ///< what, what was told, and what is true

    [[nodiscard]] std::string Summary() const;
};

Tally Compare(const Told& told, const Truth& truth);

} // namespace live
