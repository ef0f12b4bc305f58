#pragma once

#include <string>

/// Checks of what stands on the command line, made before any command is run: the names reach the
/// library's command lines unquoted. Each answers with the reason why the operand is refused,
/// empty when it is good.
namespace inspect {

/// A pool's name: a letter, then letters, digits and "_", "-", ".", ":"; at most 255 characters.
[[nodiscard]] std::string RefusedPool(const std::string& name);

/// A dataset's name: a pool's name, further components divided by "/", a snapshot behind "@".
[[nodiscard]] std::string RefusedDataset(const std::string& name);

/// A host that ssh is to reach: no option, and one word.
[[nodiscard]] std::string RefusedHost(const std::string& host);
/// The root of a state: a dataset's name without a snapshot, which may have blanks inside.
[[nodiscard]] std::string RefusedRoot(const std::string& name);

/// A path: absolute.
[[nodiscard]] std::string RefusedPath(const std::string& path);

} // namespace inspect
