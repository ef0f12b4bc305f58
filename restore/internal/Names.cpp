#include "restore/internal/Names.h"

#include "util/str.h"

#include <cstddef>

namespace zfslib::restore::internal {

bool IsWithin(std::string_view name, std::string_view top) {
    return util::str_is_starts_with(name, top) &&
           (name.size() == top.size() || name[top.size()] == '/' || name[top.size()] == '@');
}

std::string_view NameAbove(std::string_view dataset) {
    const std::size_t slash = dataset.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : dataset.substr(0, slash);
}

std::string_view PoolOf(std::string_view dataset) {
    return dataset.substr(0, dataset.find_first_of("/@"));
}

} // namespace zfslib::restore::internal
