#include "system/CRecoveryIsoDetector.h"

#include <memory>

namespace orvcommonlib::system {
namespace {

std::shared_ptr<const std::function<bool()>> currentDetector;

} // namespace

bool CRecoveryIsoDetector::IsUnderRecoveryIso() {
    const auto detector = std::atomic_load(&currentDetector);
    return detector && (*detector)();
}

void CRecoveryIsoDetector::SetDetector(std::function<bool()> detector) {
    std::atomic_store(&currentDetector,
                      detector ? std::make_shared<const std::function<bool()>>(std::move(detector))
                               : nullptr);
}

} // namespace orvcommonlib::system
