// An output of `zfs get all` for one dataset: the properties, and their copies.

#include "fuzz/fuzz.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <set>

using namespace zfslib;

void FuzzOne(const std::string& text) {
    ZfsProperties properties;
    const std::string outcome = fuzz::RepeatedOutcome(
        [&] {
            properties = ZfsProperties();
            ZfsDatasetEnumerator::ParseDatasetProperties(text, properties);
            return fuzz::Dump(properties);
        },
        {"Failed to parse zfs get: raw size [",
         "Failed to parse an inherited section of ZFS properties: parent not found."});
    if (fuzz::IsError(outcome))
        return;

    std::set<std::string> names;
    for (const Property<std::string>& property : properties.userProperties) {
        fuzz::Check(property.GetName().find(':') != std::string::npos, "a user property's name");
        fuzz::Check(names.insert(property.GetName()).second, "each name once");
        fuzz::Check(property.GetState() == PropState::Initialized, "any text is a text");
    }
    // Set again from what was read, as a restore does.
    ZfsProperties restored;
    const auto restore = [](auto& target, const auto& source) {
        if (source.GetState() == PropState::Unset)
            return;
        target.Set(source.GetText());
        target.SetSource(source.GetSource().text, source.GetSource().inheritedFrom);
    };
    restore(restored.compression, properties.compression);
    restore(restored.atime, properties.atime);
    restore(restored.canmount, properties.canmount);
    restore(restored.encryption, properties.encryption);
    fuzz::CheckEqual(fuzz::Dump(restored.compression), fuzz::Dump(properties.compression), "text");
    fuzz::CheckEqual(fuzz::Dump(restored.atime), fuzz::Dump(properties.atime), "boolean");
    fuzz::CheckEqual(fuzz::Dump(restored.canmount), fuzz::Dump(properties.canmount), "word");
    fuzz::CheckEqual(fuzz::Dump(restored.encryption), fuzz::Dump(properties.encryption), "word");

    ZfsProperties copy;
    copy = properties;
    const ZfsProperties moved = std::move(properties);
    fuzz::CheckEqual(fuzz::Dump(copy), outcome, "a copy");
    fuzz::CheckEqual(fuzz::Dump(moved), outcome, "a moved set");
}
