#include "command.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_tools {

namespace {

/// A configuration that loads the engine, written beside the test's other files.
class EngineConfiguration {
public:
    EngineConfiguration()
        : file_(boost::filesystem::temp_directory_path() /
                ("klunortredi-openssl-" + std::to_string(::getpid()) + ".cnf")) {
        std::ofstream(file_.string())
            << "openssl_conf = main\n"
               "[main]\nengines = engines\n"
               "[engines]\ngost = gost\n"
               "[gost]\nengine_id = gost\ndefault_algorithms = ALL\n"
               "[req]\ndistinguished_name = name\nx509_extensions = ca\nstring_mask = utf8only\n"
               "[name]\n"
               "[ca]\nbasicConstraints = critical, CA:TRUE\nkeyUsage = keyCertSign, cRLSign\n";
    }
    EngineConfiguration(const EngineConfiguration&) = delete;
    EngineConfiguration& operator=(const EngineConfiguration&) = delete;
    ~EngineConfiguration() {
        boost::system::error_code ignored;
        boost::filesystem::remove(file_, ignored);
    }
    [[nodiscard]] std::string path() const { return file_.string(); }

private:
    boost::filesystem::path file_;
};

} // namespace

Outcome run(const std::string& command) {
    static const EngineConfiguration configuration;
    const std::string line = "export OPENSSL_CONF='" + configuration.path() + "'; ( " + command + " ) 2>&1";
    Outcome outcome;
    FILE* pipe = ::popen(line.c_str(), "r");
    if (pipe == nullptr) {
        return outcome;
    }
    std::array<char, 4096> chunk{};
    while (const auto count = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        outcome.output.append(chunk.data(), count);
    }
    const int status = ::pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

} // namespace testing_tools
