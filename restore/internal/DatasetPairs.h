#pragma once

#include "restore/internal/KeyFiles.h"
#include "restore/internal/Names.h"
#include "restore/internal/PlanDraft.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zfslib::restore::internal {

/// A property as it is at some place in a plan.
struct PropertyNow {
    PropertySource source = PropertySource::Default;
    /// As the live tool prints it; nothing when a default, or what comes of a command, is not
    /// foreseen.
    std::optional<std::string> value;
    std::optional<std::string> received;
    std::string doubt; ///< as ValueOrigin has it

    /// Whether it is set on the dataset itself.
    [[nodiscard]] bool IsOwn() const noexcept {
        return source == PropertySource::Local || source == PropertySource::Received;
    }
};

/// Whether a value is set on the dataset itself.
[[nodiscard]] bool IsOwn(const PropertyValue& value) noexcept;

/// The alternate root of a dataset's pool; empty when there is none.
[[nodiscard]] std::string_view AltrootOf(const HostState& state, std::string_view dataset);

/// A saved dataset, and what is live of it.
struct DatasetPair {
    const ToolsState* tools = nullptr; ///< the live ones
    const DatasetState* saved = nullptr;
    const DatasetState* live = nullptr;  ///< nothing when a step makes it
    DatasetPair* parent = nullptr;       ///< the dataset above, if it is restored too
    const DatasetState* above = nullptr; ///< the dataset above that is only live
    std::string name;                    ///< the one it is to have
    std::string_view savedAltroot;       ///< of its pool; empty when there is none
    std::string_view liveAltroot;
    std::optional<PlanDraft::StepId> key; ///< the step that loads its key, if one does
    /// The encryption root whose key can be loaded only behind a mount, if it has its key from
    /// that.
    DatasetPair* lateKey = nullptr;
    /// Steps that have to be done before it, or what is below it, is mounted.
    std::vector<PlanDraft::StepId> beforeMount;
    /// What the steps so far made of its properties.
    std::map<std::string, PropertyNow, std::less<>> changed;

    /// A property with a turn of its own, as limits and mount points have, is not as it was.
    bool differs = false;

    /// Whether properties with a turn of their own have to be looked at.
    [[nodiscard]] bool NeedsTurns() const noexcept {
        return live == nullptr || differs || !changed.empty();
    }

    [[nodiscard]] bool IsFilesystem() const noexcept {
        return saved->type == DatasetState::Type::Filesystem;
    }

    /// The property behind the steps so far. What nobody set, here or above, is a default.
    [[nodiscard]] PropertyNow Now(std::string_view property) const;
    /// What it has, or would have, from the dataset above.
    [[nodiscard]] PropertyNow NowFromAbove(std::string_view property) const;
    /// Whether a step changes what those below inherit from here.
    [[nodiscard]] bool HandsDownOther(std::string_view property) const;
    /// The encryption of the dataset above: "off" where there is none.
    [[nodiscard]] std::string CipherAbove() const;
    /// What it has its key from when it is made without one: empty when that is not encrypted.
    [[nodiscard]] std::string EncryptionRootAbove() const;
};

/// The step that loads the key of a live encryption root.
[[nodiscard]] Step LoadKeyStep(const DatasetPair& root, Phase phase);

/// The datasets a plan is about, each before those below it.
class DatasetPairs {
public:
    /// Those that are wanted and can be: that others cannot be made goes into the draft.
    DatasetPairs(const PlanInput& input, PlanDraft& draft);

    [[nodiscard]] std::deque<DatasetPair>& All() noexcept { return pairs_; }
    /// The first that is `top` or comes behind it.
    [[nodiscard]] std::deque<DatasetPair>::iterator FirstWithin(std::string_view top);
    /// By its saved name.
    [[nodiscard]] DatasetPair* Find(std::string_view saved) const;
    /// By its live name.
    [[nodiscard]] DatasetPair* FindLive(std::string_view live) const;
    [[nodiscard]] KeyFiles& Keys() noexcept { return keys_; }

private:
    [[nodiscard]] bool CanBe(const DatasetPair& pair, const PlanInput& input, PlanDraft& draft);
    /// Why nothing can be made below a dataset whose key is not loaded; empty when it can.
    [[nodiscard]] std::string WhyLocked(const DatasetPair& above);

    KeyFiles keys_;

    std::deque<DatasetPair> pairs_;
    std::unordered_map<std::string_view, DatasetPair*> bySavedName_;
    std::unordered_map<std::string_view, DatasetPair*> byName_;
};

} // namespace zfslib::restore::internal
