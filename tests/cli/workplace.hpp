#pragma once

#include "support/openssl.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace cli_test {

using Json = nlohmann::json;
using test_support::Outcome;
using test_support::RunOptions;

inline constexpr const char* pinOf = "12345678";

/// A person's folder with a certification authority next door and the service's data in a place of its own.
class Workplace {
public:
    Workplace();

    /// Runs `klunortredi WORDS...` in the folder, without a terminal.
    [[nodiscard]] Outcome cli(const std::vector<std::string>& words, RunOptions options = {}) const;
    /// The same with the right PIN.
    [[nodiscard]] Outcome cliWithPin(std::vector<std::string> words, RunOptions options = {}) const;
    /// The same with --json; the document.
    [[nodiscard]] Json json(std::vector<std::string> words) const;

    /// Makes a key in `container` and a certificate for it, installed: a signer called "Signer <container>".
    void makeSigner(const std::string& container, const std::string& provider = "80",
                    const std::string& extensions = "signer_extensions");

    [[nodiscard]] const test_support::TempFolder& folder() const noexcept { return folder_; }
    /// Where the service keeps its data.
    [[nodiscard]] std::string home() const { return home_.path(); }
    [[nodiscard]] const test_support::Openssl& openssl() const noexcept { return openssl_; }

private:
    test_support::TempFolder folder_;
    test_support::TempFolder home_;
    test_support::Openssl openssl_;
};

} // namespace cli_test
