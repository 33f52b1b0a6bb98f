#include "same_file.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace klunortredi::cli {

namespace {

/// Two names of one file or folder that is there.
bool isSame(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

std::string folderOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path().string() : ".";
}

} // namespace

bool isStandardOutput(const std::string& path) {
    struct stat out {};
    struct stat named {};
    return path == "-" || (::fstat(STDOUT_FILENO, &out) == 0 && ::stat(path.c_str(), &named) == 0 &&
                           out.st_dev == named.st_dev && out.st_ino == named.st_ino);
}

bool isSameFile(const std::string& one, const std::string& other) {
    if (one == "-" || other == "-" || one.empty() || other.empty()) {
        return false;
    }
    const std::filesystem::path first(one);
    const std::filesystem::path second(other);
    return one == other || isSame(one, other) ||
           (first.filename() == second.filename() && isSame(folderOf(first), folderOf(second)));
}

} // namespace klunortredi::cli
