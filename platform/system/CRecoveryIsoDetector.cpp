#include "system/CRecoveryIsoDetector.h"

#include "util/internal/NeverDestroyed.h"
#include "util/internal/Replaceable.h"

#include <memory>
#include <utility>

namespace orvcommonlib::system {
namespace {

using Detector = std::function<bool()>;

util::internal::Replaceable<Detector>& CurrentDetector() {
    static util::internal::NeverDestroyed<util::internal::Replaceable<Detector>> detector;
    return *detector;
}

} // namespace

bool CRecoveryIsoDetector::IsUnderRecoveryIso() {
    const auto detector = CurrentDetector().Get();
    return detector && (*detector)();
}

void CRecoveryIsoDetector::SetDetector(std::function<bool()> detector) {
    CurrentDetector().Set(detector ? std::make_shared<const Detector>(std::move(detector))
                                   : nullptr);
}

} // namespace orvcommonlib::system
