#include "output_names.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <utility>

namespace klunortredi::cli {

namespace {

/// A path by one name, whatever links lead to it; as it was written where nothing is there.
std::string canonical(const std::string& path) {
    char* const resolved = ::realpath(path.empty() ? "." : path.c_str(), nullptr);
    if (resolved == nullptr) {
        return path;
    }
    std::string name(resolved);
    std::free(resolved);
    return name;
}

} // namespace

/// The path with its folder resolved, and with it a link in its last part: names of one file are alike then.
const std::string& OutputNames::resolved(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string{} : path.substr(0, slash + 1);
    if (canonicalFolder_.empty() || folder != folder_) {
        folder_ = folder;
        canonicalFolder_ = canonical(folder);
    }
    path_ = canonicalFolder_ + '/' + path.substr(slash == std::string::npos ? 0 : slash + 1);
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
        path_ = canonical(path);
    }
    return path_;
}

void OutputNames::add(const std::string& path) {
    hashes_.push_back(std::hash<std::string>{}(resolved(path)));
}

bool OutputNames::suspicious() {
    std::sort(hashes_.begin(), hashes_.end());
    std::vector<std::uint64_t> repeated;
    for (std::size_t i = 1; i < hashes_.size(); ++i) {
        if (hashes_[i] == hashes_[i - 1]) {
            repeated.push_back(hashes_[i]);
        }
    }
    hashes_ = std::move(repeated);
    return !hashes_.empty();
}

bool OutputNames::repeats(const std::string& path) {
    const std::string& name = resolved(path);
    return std::binary_search(hashes_.begin(), hashes_.end(), std::hash<std::string>{}(name)) &&
           !seen_.insert(name).second;
}

} // namespace klunortredi::cli
