#pragma once

#include <memory>
#include <utility>

namespace util::internal {

/// The lock of all Replaceable objects. Nothing of the host's runs under it, and a fork waits for
/// it: in a child that was forked while other threads held it, nobody would ever give it back.
class ReplaceableLock {
public:
    ReplaceableLock();
    ~ReplaceableLock();
    ReplaceableLock(const ReplaceableLock&) = delete;
    ReplaceableLock& operator=(const ReplaceableLock&) = delete;
};

/// A shared object, or none, that may be replaced while others use it: who got it keeps it.
template <typename T>
class Replaceable {
public:
    [[nodiscard]] std::shared_ptr<const T> Get() const {
        const ReplaceableLock lock;
        return current_;
    }
    /// `alongside()` is called in the same step, under the lock.
    template <typename Alongside>
    void Set(std::shared_ptr<const T> replacement, Alongside&& alongside) {
        const ReplaceableLock lock;
        current_.swap(replacement);
        alongside();
        // The former one goes with the parameter, which outlives the lock.
    }

    void Set(std::shared_ptr<const T> replacement) {
        Set(std::move(replacement), [] {});
    }

private:
    std::shared_ptr<const T> current_;
};

} // namespace util::internal
