#pragma once

#include "../zfslib_export.h"

#include <functional>

namespace orvcommonlib::system {

/// Whether the host runs from a recovery boot image, where the tools are there by construction and
/// user look-ups are not. Only the host knows; until it says, the answer is no.
class ZFSLIB_EXPORT CRecoveryIsoDetector {
public:
    /// The detector's answer; false when none is set. Throws what the detector throws.
    static bool IsUnderRecoveryIso();

    /// Sets the detector for the whole process; an empty one goes back to "no". May be called at
    /// any time, from any thread.
    static void SetDetector(std::function<bool()> detector);
};

} // namespace orvcommonlib::system
