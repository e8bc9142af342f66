// Making a store directory with its parents, like mkdir -p, each new
// directory private to the user (0700).
#pragma once

#include <string>

namespace files {

// True when `path` is a directory afterwards.
[[nodiscard]] bool makeDirectories(const std::string &path);

}  // namespace files
