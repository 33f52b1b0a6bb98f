#include "verbs/verbs.hpp"

#include "console.hpp"
#include "demo_steps.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "output_file.hpp"
#include "process.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <iostream>
#include <sstream>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

/// The folder in which the tour takes place; it goes when the tour is over.
class Stage {
public:
    Stage() {
        std::string pattern = (boost::filesystem::temp_directory_path() / "klunortredi-demo-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw fileFailure("cannot make a folder for the tour", errno);
        }
        folder_ = pattern;
        put("openssl.cnf", demoOpensslConfiguration());
        put("pin.txt", "12345678\n");
        put("report.txt", "The report that is to be signed.\n");
        put("changed.txt", "The report that was not signed.\n");
        boost::filesystem::current_path(folder_);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage() {
        boost::system::error_code ignored;
        boost::filesystem::current_path("/", ignored);
        boost::filesystem::remove_all(folder_, ignored);
    }

    /// The service's data lies on the stage too: the tour touches nothing of the person's.
    [[nodiscard]] std::map<std::string, std::string> environment() const {
        return {{"KLUNORTREDI_HOME", (folder_ / "home").string()},
                {"OPENSSL_CONF", (folder_ / "openssl.cnf").string()}};
    }

private:
    void put(const char* name, const std::string& text) const {
        OutputFile file((folder_ / name).string(), false);
        file.write(text);
        file.commit();
    }

    boost::filesystem::path folder_;
};

/// A command as a person would type it.
std::string typed(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) {
        const bool plain = word.find_first_of(" ;'") == std::string::npos;
        line += (line.empty() ? "" : " ") + (plain ? word : "'" + word + "'");
    }
    return line;
}

/// This program's own commands run this very file, with the service that was asked for.
std::vector<std::string> resolved(const std::vector<std::string>& command, const Options& options) {
    std::vector<std::string> result = command;
    if (result.front() == "klunortredi") {
        result.front() = boost::filesystem::read_symlink("/proc/self/exe").string();
        if (!options.service.empty()) {
            result.push_back("--service=" + options.service);
        }
    }
    return result;
}

void tell(const DemoStep& step, const ProcessResult& result) {
    std::cout << "\n# " << step.title << "\n$ " << typed(step.command) << '\n';
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        std::cout << "  " << line << '\n';
    }
    if (step.exit != 0 && result.exit == step.exit) {
        std::cout << "  (exit code " << result.exit << ", as it should be)\n";
    }
    std::cout.flush();
}

/// A machine without what the first steps need is no defect of ours.
ExitCode blame(const DemoStep& step, const ProcessResult& result) {
    const bool refused = step.command.front() == "klunortredi" && result.exit == static_cast<int>(ExitCode::service);
    return refused ? ExitCode::service : ExitCode::defect;
}

} // namespace

ExitCode demo(Session& session, const DemoArguments& arguments) {
    const Stage stage;
    Json told = Json::array();
    for (const DemoStep& step : demoSteps(arguments.authority)) {
        const ProcessResult result = runProcess(resolved(step.command, session.options), stage.environment());
        told.push_back({{"title", step.title}, {"command", typed(step.command)}, {"exit", result.exit}});
        if (!session.console.json()) {
            tell(step, result);
        }
        if (result.exit != step.exit) {
            throw Failure(blame(step, result), "the tour stops at '" + step.title + "'",
                          "the command ended with " + std::to_string(result.exit) + " instead of " +
                              std::to_string(step.exit));
        }
    }
    session.console.result({{"steps", told}}, [](std::ostream& out) {
        out << "\nThe tour is over: everything above ran here and now, in a folder that is gone again.\n";
    });
    return ExitCode::done;
}

} // namespace klunortredi::cli
