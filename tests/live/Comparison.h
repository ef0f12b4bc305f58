#pragma once

#include "inspect/Json.h"

#include <map>
#include <string>
#include <vector>

/// Compares what `zfsinspect --json` tells of a host with what the tools say in exact numbers.
namespace live {

/// The two documents in one, {"datasets": {NAME: DATASET}, "pools": {NAME: POOL}, "warnings": []},
/// with all properties and quotas by their names as well.
inspect::Json ByName(const inspect::Json& datasets, const inspect::Json& pools);

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
    std::map<std::string, std::string> devices; ///< by pool: "SECTION NAME TYPE: MEMBERS" each
    std::map<std::string, unsigned> leftOut;    ///< of the devices, by the known limit

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

Tally Compare(const inspect::Json& told, const Truth& truth);

} // namespace live
