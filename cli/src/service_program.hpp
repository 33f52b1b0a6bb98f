#pragma once

/// klunortredi-csp, the program of the embedded service, for what the CryptoAPI has no entry points for.

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace klunortredi::cli {

/// Runs `klunortredi-csp WORDS` (the one beside this program, else the one on PATH; the words include --json) and
/// returns the document that it prints. It asks on the terminal for what it needs. Throws Failure, which begins with
/// `what`, with the program's exit code and reason when it fails, or exit 4 when it cannot be run.
nlohmann::ordered_json runServiceProgram(const std::vector<std::string>& words, const std::string& what);

/// Octets under a name in memory that a program run from here can open; gone with the object.
class SharedOctets {
public:
    /// Throws Failure (exit 3) when there is no memory for them.
    explicit SharedOctets(const std::string& octets);
    SharedOctets(const SharedOctets&) = delete;
    SharedOctets& operator=(const SharedOctets&) = delete;
    ~SharedOctets();

    /// Valid in this process's children.
    [[nodiscard]] std::string path() const;

private:
    int fd_;
};

} // namespace klunortredi::cli
