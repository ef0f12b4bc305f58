#pragma once

#include "restore/HostState.h"
#include "restore/internal/PlanDraft.h"
#include "restore/internal/PlanScope.h"
#include "restore/internal/PoolLayout.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zfslib::restore::internal {

[[nodiscard]] bool IsFeature(std::string_view property);
/// Whether the value of a feature says that it is enabled.
[[nodiscard]] bool IsOn(std::string_view feature);
/// What is left of a feature that the tools do not know: "unsupported@com.example:x".
[[nodiscard]] bool IsUnsupported(std::string_view property);
/// What is so while the pool is imported, and not kept in it.
[[nodiscard]] bool IsOfTheMoment(const PoolState& pool, const PropertyValue& property);
/// What acts upon the devices by itself, or needs a dataset: set when all is there.
[[nodiscard]] bool IsLast(std::string_view property);
/// Whether the tool prints "-" where nothing is set, and takes an empty value for that.
[[nodiscard]] bool IsText(std::string_view property);
/// A value as `zpool set` takes it.
[[nodiscard]] std::string ToSet(std::string_view property, std::string_view value);
/// Whether the tools of a host let a property be set.
[[nodiscard]] bool IsSettable(const ToolsState& tools, const PropertyValue& property);
/// Whether the pool tells its properties: one that is not available prints "-" for nearly all.
[[nodiscard]] bool IsAvailable(const PoolState& pool);
/// A top-level device with what is in it: "mirror sda sdb".
[[nodiscard]] std::string Described(const LayoutGroup& group);

/// Plans what may be set on one pool and its devices.
class PoolSettings {
public:
    /// All must outlive it.
    PoolSettings(const PlanInput& input, PlanDraft& draft, const WantedPool& wanted)
        : input_(input), draft_(draft), wanted_(wanted), saved_(*wanted.saved),
          live_(input.live.state.FindPool(wanted.name)) {}

    [[nodiscard]] const PlanInput& Input() const noexcept { return input_; }
    [[nodiscard]] const WantedPool& Wanted() const noexcept { return wanted_; }
    [[nodiscard]] const std::string& Name() const noexcept { return wanted_.name; }
    [[nodiscard]] const PoolState& Saved() const noexcept { return saved_; }
    [[nodiscard]] const PoolState* Live() const noexcept { return live_; } ///< nothing when missing
    [[nodiscard]] PlanDraft& Draft() const noexcept { return draft_; }

    void CannotDo(std::string_view property, std::optional<std::string> saved,
                  std::optional<std::string> live, std::string reason);
    void Say(std::string text) { draft_.Say(Name(), std::move(text)); }
    /// Nothing is planned for its datasets.
    void LeaveOut();

    /// A value of the live pool; nothing when it has none, or is not there.
    [[nodiscard]] std::optional<std::string> LiveValue(std::string_view property) const;
    [[nodiscard]] Step SetStep(std::string_view property, const std::string& value) const;

    void PlanFeatures();
    void PlanProperty(std::string_view name);
    void PlanProperty(const PropertyValue& saved);
    /// All that have no place of their own, but for features; `last`: those of IsLast.
    void PlanProperties(bool last);
    /// User properties that were not there.
    void ForgetUserProperties();
    /// `live` is nothing of a device that is made; `name` is what the tool takes.
    void PlanDeviceProperties(const Device& saved, const Device* live, const std::string& name);

private:
    [[nodiscard]] std::string NewValue(const PropertyValue& saved) const;
    void PlanBootfs(Step step);
    void PlanVersion();

    const PlanInput& input_;
    PlanDraft& draft_;
    const WantedPool& wanted_;
    const PoolState& saved_;
    const PoolState* live_;
};

} // namespace zfslib::restore::internal
