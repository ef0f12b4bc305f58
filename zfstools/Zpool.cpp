#include "zfstools/Zpool.h"

#include "util/str.h"
#include "zfstools/Executor.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/internal/Replace.h"

#include <stdexcept>
#include <string_view>

namespace zfslib {
namespace {

using Failmode = Zpool::Properties::Failmode;

const EnumTexts<Zpool::State>& StateTexts() {
    using State = Zpool::State;
    static const EnumTexts<State> texts{
        {State::Degraded, "DEGRADED"}, {State::Offline, "OFFLINE"}, {State::Online, "ONLINE"},
        {State::Removed, "REMOVED"},   {State::Unavail, "UNAVAIL"},
    };
    return texts;
}

const EnumTexts<Zpool::VirtualDeviceType>& VirtualDeviceTypeTexts() {
    using Type = Zpool::VirtualDeviceType;
    static const EnumTexts<Type> texts{
        {Type::File, "file"},     {Type::Disk, "disk"},     {Type::Mirror, "mirror"},
        {Type::Raidz, "raidz"},   {Type::Raidz1, "raidz1"}, {Type::Raidz2, "raidz2"},
        {Type::Raidz3, "raidz3"},
    };
    return texts;
}

const EnumTexts<Failmode>& FailmodeTexts() {
    static const EnumTexts<Failmode> texts{
        {Failmode::Wait, "wait"},
        {Failmode::Continue, "continue"},
        {Failmode::Panic, "panic"},
    };
    return texts;
}

constexpr const char* stateError = "Incorrect zpool state value: ";
constexpr const char* virtualDeviceTypeError = "Unknown virtual device type conversion:";
constexpr const char* failmodeError = "Incorrect zpool failmode value: ";

/// The ratio for the capacity arithmetic: 1 when the tool reported none.
double DedupRatio(const Property<double>& property) {
    switch (property.GetState()) {
    case PropState::Unset:
        break;
    case PropState::Initialized:
        return property.GetValue();
    case PropState::Failed:
        throw std::runtime_error("Error, getting property value that was mismatched: [" +
                                 property.GetName() + "]:[" + property.GetText() + "]");
    }
    return 1.0;
}

/// The ratio raised to a whole number, in 32 bits, as the sizes have always been computed.
std::int32_t RatioCeiling(double ratio) {
    auto whole = static_cast<std::uint32_t>(util::TruncateToUint64(ratio));
    if (ratio > static_cast<double>(static_cast<std::int32_t>(whole)))
        ++whole;
    return static_cast<std::int32_t>(whole);
}

void ModifyPoolProperty(const std::string& pool, const std::string& property,
                        const std::string& value) {
    const CommandExecutor executor = Executors::GetProcessExecutor();
    executor("/usr/bin/env -i zpool set " + property + "=" + value + " " + pool);
}

template <typename T>
void SetPoolProperty(const std::string& pool, const Property<T>& property,
                     const std::string& setter) {
    if (property.GetName() != setter)
        throw std::runtime_error("Error: try to set [" + property.GetName() +
                                 "] property for pool [" + pool + "] via incorrect setter [" +
                                 setter + "]");
    ModifyPoolProperty(pool, property.GetName(), property.GetText());
}

} // namespace

Zpool::State Zpool::StringToState(const std::string& text) {
    return StateTexts().Value(text, stateError);
}

std::string Zpool::StateToString(const State& state) {
    return StateTexts().Text(state, stateError);
}

Zpool::VirtualDeviceType Zpool::StringToVirtualDeviceType(const std::string& text) {
    return VirtualDeviceTypeTexts().Value(text, virtualDeviceTypeError);
}

std::string Zpool::VirtualDeviceTypeToString(const VirtualDeviceType& type) {
    return VirtualDeviceTypeTexts().Text(type, virtualDeviceTypeError);
}

Failmode Zpool::Properties::StringToFailmode(const std::string& text) {
    return FailmodeTexts().Value(text, failmodeError);
}

std::string Zpool::Properties::FailmodeToString(const Failmode& value) {
    return FailmodeTexts().Text(value, failmodeError);
}

double Zpool::Properties::StringToDedupratio(const std::string& text) {
    std::string_view rest = text;
    const auto ratio = util::ConsumeDouble(rest);
    if (!ratio || *ratio < 1.0)
        throw std::runtime_error("Failed to parse deduplication ratio. Provided value: [" + text +
                                 "].");
    return *ratio;
}

std::string Zpool::Properties::DedupratioToString(const double& ratio) {
    return util::DoubleToString(ratio);
}

void Zpool::Properties::SetAutoexpand(const std::string& pool, const Property<bool>& property) {
    SetPoolProperty(pool, property, "autoexpand");
}

void Zpool::Properties::SetAutoreplace(const std::string& pool, const Property<bool>& property) {
    SetPoolProperty(pool, property, "autoreplace");
}

void Zpool::Properties::SetFailmode(const std::string& pool, const Property<Failmode>& property) {
    SetPoolProperty(pool, property, "failmode");
}

void Zpool::Properties::SetBootfs(const std::string& pool, const Property<std::string>& property) {
    SetPoolProperty(pool, property, "bootfs");
}

void Zpool::Properties::SetCachefile(const std::string& pool,
                                     const Property<std::string>& property) {
    SetPoolProperty(pool, property, "cachefile");
}

void Zpool::Properties::SetScrubInterval(const std::string& pool,
                                         const Property<std::string>& property) {
    SetPoolProperty(pool, property, "scrubinterval");
}

Zpool& Zpool::operator=(Zpool&& other) noexcept {
    return Replace(*this, other);
}

std::uint64_t Zpool::GetMaxSize() const {
    const std::int64_t ceiling = RatioCeiling(DedupRatio(properties.dedupratio));
    return size * static_cast<std::uint64_t>(ceiling);
}

std::uint64_t Zpool::GetAllocatedSize() const {
    return util::TruncateToUint64(static_cast<double>(allocated) *
                                  DedupRatio(properties.dedupratio));
}

std::uint64_t Zpool::GetAvailableSize() const {
    if (GetAllocatedSize() > GetMaxSize())
        throw std::runtime_error("Contract violation at zfstools/Zpool:98 GetAvailableSize");
    return GetMaxSize() - GetAllocatedSize();
}

template class Property<Failmode>;

} // namespace zfslib
