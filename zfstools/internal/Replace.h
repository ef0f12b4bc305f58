#pragma once

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace zfslib {

/// The move assignment of a record: as memberwise, but an object that is moved into itself keeps
/// what it holds, which the vectors of the standard library do not.
template <typename Record>
Record& Replace(Record& target, Record& source) noexcept {
    static_assert(std::is_nothrow_move_constructible_v<Record>);
    if (&target != &source) {
        std::destroy_at(&target);
        ::new (static_cast<void*>(&target)) Record(std::move(source));
    }
    return target;
}

} // namespace zfslib
