#pragma once

#include "../util/str.h"
#include "../zfslib_export.h"

#include <exception>
#include <stdexcept>
#include <string_view>

namespace exc {

/// An error of the library whose message is formatted by util::str_format.
class ZFSLIB_EXPORT CRuntimeExc : public std::runtime_error {
public:
    /// The message is `format` with its arguments put in.
    template <typename... Args>
    explicit CRuntimeExc(std::string_view format, const Args&... args)
        : std::runtime_error(util::str_format(format, args...)) {}
    CRuntimeExc(const CRuntimeExc&) = default;
    CRuntimeExc& operator=(const CRuntimeExc&) = default;
    CRuntimeExc(CRuntimeExc&&) = default;
    CRuntimeExc& operator=(CRuntimeExc&&) = default;
    ~CRuntimeExc() override;
};

/// Throws a CRuntimeExc whose cause is the exception being handled: it also derives from
/// std::nested_exception, so std::rethrow_if_nested gives the cause. To be called in a catch block.
template <typename... Args>
[[noreturn]] void RegenExc(std::string_view format, const Args&... args) {
    std::throw_with_nested(CRuntimeExc(format, args...));
}

} // namespace exc
