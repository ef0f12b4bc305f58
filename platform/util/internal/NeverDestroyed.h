#pragma once

#include <new>
#include <utility>

namespace util::internal {

/// An object that is built once and never destroyed: while the process ends, destructors of the
/// host and threads that still run may use the library.
template <typename T>
class NeverDestroyed {
public:
    template <typename... Args>
    explicit NeverDestroyed(Args&&... args) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
    const T& operator*() const noexcept {
        return *std::launder(reinterpret_cast<const T*>(storage_));
    }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

} // namespace util::internal
