#pragma once

/// Looks at the calls by which this program asks for files and folders, counts them and makes them fail.

#include <functional>
#include <string>

namespace file_calls {

enum class Call { Open, Stat, Read, OpenFolder, ReadFolder };

/// Judges a call: 0 lets it through, an errno value fails it. `path` is what was asked for, empty for reads. While it
/// is empty, nothing is counted.
extern std::function<int(Call call, const std::string& path)> judge; // NOLINT

} // namespace file_calls
