#pragma once

#include "inspect/HealthReport.h"
#include "inspect/Json.h"
#include "inspect/Table.h"

#include <ostream>

namespace inspect {

/// A line for each pool; below one that is not healthy what is wrong, what to do, and which devices
/// it is.
void PrintHealthText(std::ostream& out, const HealthReport& report);

/// OpenMetrics text, of which nothing is used that the older Prometheus text format does not have.
void PrintHealthMetrics(std::ostream& out, const HealthReport& report);

[[nodiscard]] Json HealthReportJson(const HealthReport& report);

/// What `zpool status` says of one pool.
[[nodiscard]] Json HealthJson(const zfslib::PoolHealth& health);

/// "mirror", "disk".
[[nodiscard]] std::string DeviceTypeText(zfslib::PoolHealth::DeviceType type);

/// Which rows of the device table are shown.
enum class DeviceChoice { All, Sick };

/// Adds the devices, below the titles of their sections: name, type, state, errors, note. Those
/// that are not well are shown with the groups that they stand in. `ownTitle` is that of what the
/// pool keeps its data on.
void AddDevices(Table& table, const zfslib::PoolHealth& health, DeviceChoice choice,
                const std::string& ownTitle);

/// What is wrong and what to do, in the tool's words, each below its title, broken into lines.
void PrintAdvice(std::ostream& out, const zfslib::PoolHealth& health);

/// A title and a text, broken into lines below each other.
void PrintField(std::ostream& out, const std::string& title, const std::string& text);

} // namespace inspect
