#pragma once

// What the fuzz targets share. An input fails a target when it makes the library crash, throw
// something undocumented, or break one of the target's checks.

#include "util/str.h"
#include "zfstools/Property.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/Zpool.h"

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

/// Tries one input; defined by each target.
void FuzzOne(const std::string& text);

namespace fuzz {

inline void Check(bool holds, std::string_view what) {
    if (holds)
        return;
    std::cerr << "Check failed: " << what << '\n';
    std::abort();
}

inline void CheckEqual(const std::string& actual, const std::string& expected,
                       std::string_view what) {
    if (actual != expected)
        std::cerr << "Actual:   [" << actual << "]\nExpected: [" << expected << "]\n";
    Check(actual == expected, what);
}

/// How an outcome says an error: what() ends at a NUL, which a tool's text may hold.
inline std::string ErrorText(const std::string& message) {
    return std::string("error: ") + message.c_str();
}

/// What `parse` returns, or the text of a std::runtime_error whose message begins with one of
/// `errors`. Any other exception goes on and ends the run.
inline std::string Outcome(const std::function<std::string()>& parse,
                           std::initializer_list<std::string_view> errors) {
    try {
        return parse();
    } catch (const std::runtime_error& error) {
        if (typeid(error) == typeid(std::runtime_error))
            for (const std::string_view documented : errors)
                if (util::str_is_starts_with(error.what(), documented))
                    return ErrorText(error.what());
        throw;
    }
}

/// The same, tried twice: the second time must not differ.
inline std::string RepeatedOutcome(const std::function<std::string()>& parse,
                                   std::initializer_list<std::string_view> errors) {
    const std::string outcome = Outcome(parse, errors);
    CheckEqual(Outcome(parse, errors), outcome, "the same input gives the same result");
    return outcome;
}

template <typename T>
std::string Dump(const zfslib::Property<T>& property) {
    const zfslib::PropSource& source = property.GetSource();
    return property.GetName() + "=" + property.GetText() + "(" +
           util::str(static_cast<unsigned>(property.GetState())) + " " +
           zfslib::PropSource::TypeToString(source.type) + util::str(source.unparsed) + " " +
           source.text + " " + source.inheritedFrom + ") ";
}

/// The device without its references' guids, which are new each time.
inline std::string Dump(const zfslib::Zpool::VirtualDevice& device) {
    std::string text =
        device.name + ":" + zfslib::Zpool::VirtualDeviceTypeToString(device.type) + "(";
    for (const zfslib::Zpool::DeviceReference& reference : device.devices)
        text += reference.name + " ";
    return text + ") ";
}

template <typename T>
std::string Dump(const std::vector<T>& values) {
    std::string text = "[";
    for (const T& value : values)
        text += Dump(value);
    return text + "] ";
}

inline std::string Dump(const zfslib::ZfsProperties& properties) {
    std::string text;
    zfslib::ZfsProperties::ForEach(properties,
                                   [&text](const auto& property) { text += Dump(property); });
    return text + Dump(properties.userQuotas) + Dump(properties.groupQuotas) +
           Dump(properties.userProperties);
}

inline std::string Dump(const zfslib::ZfsDataset& dataset) {
    return dataset.name + ":" + zfslib::ZfsDataset::TypeToString(dataset.type) + " " +
           util::str(dataset.avail) + " " + util::str(dataset.used) + " " +
           util::str(dataset.usedrefreserv) + " " + Dump(dataset.properties) + "\n";
}

inline std::string Dump(const zfslib::Zpool::Properties& properties) {
    std::string text;
    zfslib::Zpool::Properties::ForEach(properties,
                                       [&text](const auto& property) { text += Dump(property); });
    return text;
}

/// A pool, or the configuration that `zpool status` shows of it.
template <typename Pool>
std::string DumpConfig(const Pool& pool) {
    return zfslib::Zpool::StateToString(pool.state) + Dump(pool.devices) + Dump(pool.logs) +
           Dump(pool.caches) + Dump(pool.metas) + Dump(pool.spares);
}

inline std::string Dump(const zfslib::Zpool& pool) {
    return pool.name + ":" + util::str(pool.size) + " " + util::str(pool.allocated) + " " +
           DumpConfig(pool) + Dump(pool.properties) + "\n";
}

inline bool IsError(const std::string& outcome) {
    return util::str_is_starts_with(outcome, "error: ");
}

/// Pool sizes are computed from whatever the tools said; both errors are documented.
inline std::string DumpSizes(const zfslib::Zpool& pool) {
    return Outcome(
        [&pool] {
            const std::string sizes =
                util::str(pool.GetMaxSize()) + " " + util::str(pool.GetAllocatedSize()) + " ";
            return sizes + util::str(pool.GetAvailableSize());
        },
        {"Contract violation at zfstools/Zpool:98 GetAvailableSize",
         "Error, getting property value that was mismatched: [dedupratio]:["});
}

} // namespace fuzz
