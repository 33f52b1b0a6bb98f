#include "service_program.hpp"

#include "failure.hpp"
#include "process.hpp"
#include "write_all.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* programName = "klunortredi-csp";

std::string program() {
    boost::system::error_code ignored;
    const auto self = boost::filesystem::read_symlink("/proc/self/exe", ignored);
    const auto beside = self.parent_path() / programName;
    return boost::filesystem::exists(beside, ignored) ? beside.string() : programName;
}

/// The document; what else there is went to standard error.
Json documentIn(const std::string& output) {
    const auto begin = output.find('{');
    const auto end = output.rfind('}');
    return begin == std::string::npos || end == std::string::npos
               ? Json()
               : Json::parse(output.substr(begin, end + 1 - begin), nullptr, false);
}

} // namespace

Json runServiceProgram(const std::vector<std::string>& words, const std::string& what) {
    std::vector<std::string> command{program()};
    command.insert(command.end(), words.begin(), words.end());
    const ProcessResult result = runProcess(command, {{"KLUNORTREDI_TRACE", ""}});
    Json document = documentIn(result.output);
    if (result.exit != 0 || !document.is_object()) {
        const bool explained = document.is_object() && document.contains("error");
        throw Failure(result.exit > 0 ? static_cast<ExitCode>(result.exit) : ExitCode::service, what,
                      explained ? document["error"].value("message", std::string{}) : "klunortredi-csp cannot be run");
    }
    return document;
}

SharedOctets::SharedOctets(const std::string& octets) : fd_(::memfd_create("octets", 0)) {
    const int error = fd_ < 0 ? errno : writeAll(fd_, octets);
    if (error != 0) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        throw fileFailure("cannot hand over octets", error);
    }
}

SharedOctets::~SharedOctets() {
    ::close(fd_);
}

std::string SharedOctets::path() const {
    return "/proc/self/fd/" + std::to_string(fd_);
}

} // namespace klunortredi::cli
