#pragma once

#include "restore/internal/PlanDraft.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zfslib::restore::internal {

/// Keys that are read from files of the file systems that a plan puts back.
class KeyFiles {
public:
    explicit KeyFiles(const PlanInput& input) : input_(input) {}

    /// The name of the file system that has the file of a keylocation and is yet to be mounted in
    /// its place: the key cannot be loaded before. Empty when there is none.
    [[nodiscard]] std::string FindUnmountedKeeper(std::string_view keylocation);
    /// As above, of the key of an encryption root, which is looked for where it was.
    [[nodiscard]] std::string FindUnmountedKeeper(const DatasetState* saved,
                                                  const DatasetState& live);

private:
    void FindPlaces();

    const PlanInput& input_;
    /// What was mounted, by the places where it is to be again.
    std::optional<std::map<std::string, const DatasetState*>> places_;
    std::map<std::string, bool> taken_; ///< the places where something is mounted now
};

/// Why a dataset cannot be made, or get its key, where the key above it can be loaded only then.
[[nodiscard]] std::string TextOfLateKey(std::string_view root, std::string_view keeper);

} // namespace zfslib::restore::internal
