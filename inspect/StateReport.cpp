#include "inspect/StateReport.h"

#include "util/str.h"

#include <string_view>

namespace inspect {
namespace {

using zfslib::restore::DatasetState;
using zfslib::restore::PropertyRule;
using zfslib::restore::PropertySource;
using zfslib::restore::PropertyValue;

bool WasSet(const PropertyValue& property) {
    const PropertySource source = property.Source();
    return source == PropertySource::Local || source == PropertySource::Received ||
           source == PropertySource::Temporary || property.Received() || !property.IsExact();
}

} // namespace

std::vector<const PropertyValue*> StateReport::Shown(const DatasetState& dataset) const {
    const DatasetState* parent = state.FindDataset(dataset.name.substr(0, dataset.name.rfind('/')));
    if (parent == &dataset)
        parent = nullptr;
    std::vector<const PropertyValue*> shown;
    for (const PropertyValue& property : dataset.properties) {
        const auto differsFromParent = [&] {
            const PropertyRule* rule = FindRule(state.tools.datasetProperties, property.Name());
            if (rule == nullptr || !rule->IsSetOnce())
                return false;
            const PropertyValue* above =
                parent == nullptr ? nullptr : parent->Find(property.Name());
            return above == nullptr || above->Value() != property.Value();
        };
        if (withAll || WasSet(property) ||
            (property.Source() == PropertySource::None && differsFromParent()))
            shown.push_back(&property);
    }
    return shown;
}

std::vector<const PropertyValue*> StateReport::Shown(const zfslib::restore::PoolState& pool) const {
    std::vector<const PropertyValue*> shown;
    for (const PropertyValue& property : pool.properties)
        if (withAll || (WasSet(property) && !util::str_is_starts_with(property.Name(), "feature@")))
            shown.push_back(&property);
    return shown;
}

} // namespace inspect
