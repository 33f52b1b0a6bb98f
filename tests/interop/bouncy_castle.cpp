#include "interop/bouncy_castle.hpp"

#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>

namespace interop {

namespace {

using test_support::Outcome;
using test_support::RunOptions;

// Where Debian's libbcprov-java, libbcpkix-java and libbcutil-java put them.
constexpr std::array<const char*, 3> archives = {"/usr/share/java/bcprov.jar", "/usr/share/java/bcpkix.jar",
                                                 "/usr/share/java/bcutil.jar"};
// Virtual machines of tests side by side: neither needs more, and starting is most of what they do.
constexpr std::array<const char*, 3> machine = {"-Xmx128m", "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1"};

std::string classPath() {
    std::string path = ".";
    for (const char* archive : archives) {
        path.append(":").append(archive);
    }
    return path;
}

std::string mustRun(const std::vector<std::string>& command, const test_support::TempFolder& folder) {
    RunOptions options;
    options.folder = folder.path();
    const Outcome result = test_support::run(command, options);
    if (result.exit != 0) {
        throw std::runtime_error(command.front() + " failed: " + result.err);
    }
    return result.out;
}

} // namespace

std::string BouncyCastle::lacks() {
    for (const char* archive : archives) {
        if (::access(archive, R_OK) != 0) {
            return std::string("no ") + archive;
        }
    }
    for (const char* program : {"javac", "java"}) {
        if (test_support::run({program, "-version"}).exit != 0) {
            return std::string("no ") + program;
        }
    }
    return {};
}

BouncyCastle::BouncyCastle(const test_support::TempFolder& folder, std::string program)
    : folder_(folder), program_(std::move(program)) {
    mustRun({"javac", "-encoding", "UTF-8", "-cp", classPath(), "-sourcepath", JAVA_SOURCES, "-d", ".",
             std::string(JAVA_SOURCES) + "/" + program_ + ".java"},
            folder_);
}

std::vector<std::string> BouncyCastle::run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{"java"};
    command.insert(command.end(), machine.begin(), machine.end());
    command.insert(command.end(), {"-cp", classPath(), program_});
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::istringstream out(mustRun(command, folder_));
    std::vector<std::string> lines;
    for (std::string line; std::getline(out, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace interop
