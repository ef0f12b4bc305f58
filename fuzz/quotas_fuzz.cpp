// An output of `zfs userspace` or `zfs groupspace`. Names are looked up on the machine that runs
// this, so an input that fails here may need its users.

#include "exc/exc.h"
#include "fuzz/fuzz.h"
#include "zfstools/ZfsDatasetEnumerator.h"

using namespace zfslib;

namespace {

std::string Parse(const std::string& quotaType, const std::string& text) {
    try {
        const auto quotas = ZfsDatasetEnumerator::parseDatasetQuotas(quotaType, text);
        for (const Property<std::string>& quota : quotas) {
            const std::string& name = quota.GetName();
            fuzz::Check(util::str_is_starts_with(name, quotaType + "@") &&
                            util::str_is_integer(name.substr(quotaType.size() + 1)),
                        "a quota's name ends in a number");
            fuzz::Check(quota.GetState() == PropState::Initialized, "any text is a text");
        }
        return fuzz::Dump(quotas);
    } catch (const exc::CRuntimeExc& error) {
        const std::string message = error.what();
        const bool isUnknownOwner =
            util::str_is_starts_with(message, "Failed to generate ZFS quota name for [") &&
            dynamic_cast<const std::nested_exception*>(&error) != nullptr;
        std::string outcome = fuzz::ErrorText(message);
        if (!isUnknownOwner)
            fuzz::CheckEqual(outcome,
                             fuzz::ErrorText("Unexpected command output for [" + quotaType +
                                             "]: [" + text + "]."),
                             "a documented error");
        return outcome;
    }
}

} // namespace

void FuzzOne(const std::string& text) {
    for (const char* quotaType : {"userquota", "groupquota"}) {
        const std::string outcome = Parse(quotaType, text);
        fuzz::CheckEqual(Parse(quotaType, text), outcome, "the same input gives the same result");
        fuzz::Check(util::str_is_starts_with(text, "TYPE ") ||
                        util::str_is_starts_with(outcome, "error: Unexpected"),
                    "without its header no output is read");
    }
}
