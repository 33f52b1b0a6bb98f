#pragma once

/// The openssl command with the GOST engine: certification authority and second judge.

#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <string>
#include <vector>

namespace test_support {

class Openssl {
public:
    /// Keeps its configuration and its files in `folder`.
    explicit Openssl(const TempFolder& folder);

    /// Runs `openssl ARGUMENTS...` in the folder.
    [[nodiscard]] Outcome run(const std::vector<std::string>& arguments) const;
    /// The same, for steps that must succeed: throws with the command's own words otherwise.
    void must(const std::vector<std::string>& arguments) const;

    /// Makes a certification authority (ca.key, ca.pem) with a key of `algorithm` (an openssl -newkey word).
    void makeAuthority(const std::string& algorithm = "gost2012_256") const;
    /// Issues `out` (PEM) for the DER request `csr`. `extensions` names a section of the configuration:
    /// signer_extensions (digitalSignature), encipher_extensions (no digitalSignature) or bare_extensions (no key
    /// usage).
    void issue(const std::string& csr, const std::string& out,
               const std::string& extensions = "signer_extensions") const;

private:
    const TempFolder& folder_;
};

} // namespace test_support
