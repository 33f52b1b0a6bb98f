#include "support/temp_folder.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace test_support {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "klunortredi-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary folder");
    }
    path_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempFolder::write(const std::string& name, std::string_view octets) const {
    std::ofstream file(path_ / name, std::ios::binary | std::ios::trunc);
    file.write(octets.data(), static_cast<std::streamsize>(octets.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + name);
    }
    return (path_ / name).string();
}

std::string TempFolder::read(const std::string& name) const {
    return readFile((path_ / name).string());
}

bool TempFolder::has(const std::string& name) const {
    return fs::exists(path_ / name);
}

std::vector<std::string> TempFolder::names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace test_support
