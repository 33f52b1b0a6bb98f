#pragma once

#include "support/openssl.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace admin_test {

using Json = nlohmann::json;
using test_support::Outcome;
using test_support::RunOptions;
using Words = std::vector<std::string>;

/// A person's folder with keys made by openssl, and the service's data in a place of its own. pin.txt, other-pin.txt
/// and wrong.txt hold PINs; password.txt holds that of every key file made here.
class Place {
public:
    Place();

    /// Runs `klunortredi-csp container WORDS...` in the folder, without a terminal.
    [[nodiscard]] Outcome admin(const Words& words, RunOptions options = {}) const;
    /// Imports with the usual PIN and password.
    [[nodiscard]] Outcome import(Words words, RunOptions options = {}) const;
    /// The same, for steps that must succeed.
    void mustImport(const Words& words) const;
    /// The document of `admin` with --json.
    [[nodiscard]] Json json(Words words) const;

    /// Runs another program in the folder.
    [[nodiscard]] Outcome tool(const Words& command) const;
    void mustTool(const Words& command) const;

    /// NAME.key and NAME.pem (subject "Signer NAME") with a key of openssl's `algorithm` words.
    void makeKey(const std::string& name, const Words& algorithm = {"gost2012_256", "-pkeyopt", "paramset:A"}) const;
    /// NAME.p12 of the two, by openssl with further words.
    void makePfx(const std::string& name, const Words& words = {}) const;

    /// Signs with the imported key through `klunortredi` and lets openssl verify; empty when that succeeds, else what
    /// failed. `pin` names a file.
    [[nodiscard]] std::string signingProblem(const std::string& certificate, const std::string& pin = "pin.txt") const;

    [[nodiscard]] std::string file(const std::string& container, const std::string& name) const;

    [[nodiscard]] const test_support::TempFolder& folder() const noexcept { return folder_; }
    [[nodiscard]] const test_support::TempFolder& home() const noexcept { return home_; }
    [[nodiscard]] const test_support::Openssl& openssl() const noexcept { return openssl_; }

private:
    [[nodiscard]] Outcome run(Words command, RunOptions options) const;

    test_support::TempFolder folder_;
    test_support::TempFolder home_;
    test_support::Openssl openssl_;
};

/// Whether a program is on PATH.
bool installed(const std::string& program);

} // namespace admin_test
