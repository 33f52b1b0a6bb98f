#pragma once

#include <string>
#include <utility>

namespace orvik::plugin {

/// A file that the application works on.
class FileInfo {
public:
    explicit FileInfo(std::string path) : path_(std::move(path)) {}
    /// Path text, UTF-8.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
};

} // namespace orvik::plugin
