// Prints what a restore of everything below a dataset sets again; runs nothing.

#include "executors/ReplayingExecutor.h"
#include "util/str.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <iostream>
#include <set>
#include <type_traits>

using namespace zfslib;

/// Whether the value has to be set again: it was set here, or it is inherited from a dataset that
/// does not come back with `root`. A default comes back by itself, and so does what is inherited
/// from below `root`; a temporary value is a mount option; without a source it cannot be set.
bool IsToRestore(const PropSource& source, const std::string& root) {
    using Type = PropSource::Type;
    if (source.unparsed != 0 || source.type == Type::Local || source.type == Type::Received)
        return true;
    return source.type == Type::Inherited && source.inheritedFrom != root &&
           !util::str_is_starts_with(source.inheritedFrom, root + "/");
}

/// Whether the text is what the tool printed. These three are read as "on" or not "on", so that of
/// "rw=@10.0.0.0/8" and "sa" an "off" is left: ask the tool for them.
template <typename T>
bool IsTextKept(const Property<T>& property) {
    static const std::set<std::string> oftenOther = {"sharenfs", "sharesmb", "xattr"};
    if constexpr (std::is_same_v<T, bool>)
        return property.GetValue() || oftenOther.count(property.GetName()) == 0;
    return true;
}

void Restore(const ZfsDataset& dataset, const std::string& root) {
    const auto restore = [&](const auto& property) {
        const std::string& name = property.GetName();
        if (property.GetState() == PropState::Unset || !IsToRestore(property.GetSource(), root))
            return;
        if (ZfsProperties::IsSetAtCreation(name))
            std::cout << "create " << dataset.name << " with " << name << '=' << property.GetText()
                      << '\n';
        else if (IsTextKept(property))
            ZfsDataset::ModifyPoolProperty(dataset.name, name, property.GetText());
        else
            std::cout << "look up " << name << " of " << dataset.name << '\n';
    };
    ZfsProperties::ForEach(dataset.properties, restore);
    for (const Property<std::string>& property : dataset.properties.userProperties)
        restore(property);
    // A quota from the default comes back with `defaultuserquota` or `defaultgroupquota`.
    for (const auto* quotas : {&dataset.properties.userQuotas, &dataset.properties.groupQuotas})
        for (const Property<std::string>& quota : *quotas)
            if (quota.GetText() != "none" && quota.GetSource().type != PropSource::Type::Default)
                ZfsDataset::ModifyPoolProperty(dataset.name, quota.GetName(), quota.GetText());
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: restore RECORDING DATASET\n";
        return 2;
    }
    const std::string root = argv[2];
    const CommandExecutor executor = executors::Replayer(argv[1]).Executor();
    Executors::SetProcessExecutor(executor);
    const auto [datasets, warnings] = ZfsDatasetEnumerator().Enumerate(root, executor);
    for (const std::string& warning : warnings)
        std::cerr << warning << '\n';

    Executors::SetProcessExecutor([](const std::string& command) {
        std::cout << command << '\n';
        return std::string();
    });
    for (const ZfsDataset& dataset : datasets)
        if (dataset.type != ZfsDataset::snapshot)
            Restore(dataset, root);
}
