#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace test_support {

/// A folder of the test's own, removed with everything in it.
class TempFolder {
public:
    TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder();

    [[nodiscard]] std::string path() const { return path_.string(); }
    [[nodiscard]] std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    /// Writes a file and gives its path.
    std::string write(const std::string& name, std::string_view octets) const;
    [[nodiscard]] std::string read(const std::string& name) const;
    [[nodiscard]] bool has(const std::string& name) const;
    /// Removes a file, when it is there.
    void remove(const std::string& name) const { std::filesystem::remove(path_ / name); }
    /// Names of everything in the folder.
    [[nodiscard]] std::vector<std::string> names() const;
    /// How many there are.
    [[nodiscard]] std::size_t count() const { return names().size(); }

private:
    std::filesystem::path path_;
};

/// The whole file; throws when it cannot be read.
std::string readFile(const std::string& path);

} // namespace test_support
