#pragma once

#include "restore/HostState.h"

#include <vector>

namespace inspect {

struct StateReport {
    zfslib::restore::HostState state;
    bool withAll = false; ///< else only what somebody chose

    /// The properties of a dataset that are to be shown: all, or those that were set on it or came
    /// with a stream, those that are not known for certain, and of those given at creation the ones
    /// with another value than in the dataset above.
    [[nodiscard]] std::vector<const zfslib::restore::PropertyValue*>
    Shown(const zfslib::restore::DatasetState& dataset) const;

    /// The properties of a pool that are to be shown: all, or those that were set, without
    /// features.
    [[nodiscard]] std::vector<const zfslib::restore::PropertyValue*>
    Shown(const zfslib::restore::PoolState& pool) const;
};

} // namespace inspect
