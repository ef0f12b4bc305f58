#pragma once

#include "restore/internal/KeyFiles.h"
#include "restore/internal/PlanDraft.h"

#include <string>
#include <string_view>
#include <vector>

namespace zfslib::restore::internal {

/// What only creation can set of a dataset: one "property=value" each, for `zfs create -o` and, of
/// a pool's root, `zpool create -O`.
struct CreationOptions {
    std::vector<std::string> properties;
    std::string asksFor; ///< as Step has it: of the key of an encryption root
    std::string why;     ///< where the key is read, else
};

/// `cipherAbove` is the encryption of the dataset above, "off" where there is none.
[[nodiscard]] CreationOptions CreationOptionsOf(const PlanInput& input, KeyFiles& keys,
                                                const DatasetState& saved,
                                                std::string_view cipherAbove);

/// Adds what file systems, volumes and snapshots need. The pools have to be in the draft.
void PlanDatasets(const PlanInput& input, PlanDraft& draft);

} // namespace zfslib::restore::internal
