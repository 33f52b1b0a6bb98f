#include "cli/workplace.hpp"

#include <stdexcept>

namespace cli_test {

Workplace::Workplace() : openssl_(folder_) {
    folder_.write("pin.txt", std::string(pinOf) + "\n");
    folder_.write("report.txt", "The report.\n");
    openssl_.makeAuthority();
}

Outcome Workplace::cli(const std::vector<std::string>& words, RunOptions options) const {
    std::vector<std::string> command{KLUNORTREDI};
    command.insert(command.end(), words.begin(), words.end());
    options.environment.emplace("KLUNORTREDI_HOME", home_.path());
    options.folder = folder_.path();
    return test_support::run(command, options);
}

Outcome Workplace::cliWithPin(std::vector<std::string> words, RunOptions options) const {
    words.insert(words.end(), {"--pin-file", "pin.txt"});
    return cli(words, std::move(options));
}

Json Workplace::json(std::vector<std::string> words) const {
    words.insert(words.end(), {"--json", "--pin-file", "pin.txt"});
    const Outcome result = cli(words);
    try {
        return Json::parse(result.out);
    } catch (const Json::exception&) {
        throw std::runtime_error("no JSON document on standard output: '" + result.out +
                                 "', standard error: " + result.err);
    }
}

void Workplace::makeSigner(const std::string& container, const std::string& provider, const std::string& extensions) {
    const auto must = [](const Outcome& result) {
        if (result.exit != 0) {
            throw std::runtime_error("cannot make a signer: " + result.err);
        }
    };
    must(cliWithPin({"request", "--container", container, "--subject", "2.5.4.3=Signer " + container, "--provider",
                     provider, "--out", container + ".csr"}));
    openssl_.issue(container + ".csr", container + ".pem", extensions);
    must(cliWithPin({"install", container + ".pem", "--container", container}));
}

} // namespace cli_test
