#pragma once

#include <string>

namespace klunortredi::cli {

/// Whether that path is this process's standard output, under whatever name.
bool isStandardOutput(const std::string& path);

/// Whether two paths lead to one file: the same file by whatever names, or, of a file that is not there yet, the same
/// name in the same folder. Never for "-".
bool isSameFile(const std::string& one, const std::string& other);

} // namespace klunortredi::cli
