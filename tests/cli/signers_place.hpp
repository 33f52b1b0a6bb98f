#pragma once

#include "cli/workplace.hpp"

#include <string>
#include <vector>

namespace cli_test {

/// A workplace with messages that openssl makes, of any number of self-signed signers.
class SignersPlace : public Workplace {
public:
    /// Makes NAME.pem and NAME.key: a self-signed certificate of subject CN=NAME with a key of that kind (an openssl
    /// -newkey word). `options` are further words of `openssl req`.
    void makeIdentity(const std::string& name, const std::string& algorithm = "gost2012_256",
                      const std::vector<std::string>& options = {}) const;

    /// Signs report.txt with each of the signers, the first one first; `options` are further words of `openssl cms`.
    void sign(const std::string& out, const std::vector<std::string>& signers,
              const std::vector<std::string>& options = {"-nodetach"}) const;

    /// Writes `out`: the message `in` with one bit changed in the last GOST R 34.10-2012 signature value of 64 octets
    /// but `fromEnd`.
    void breakSignature(const std::string& in, const std::string& out, std::size_t fromEnd = 0) const;

    /// SHA-1 of the certificate NAME.pem, 40 hexadecimal digits.
    [[nodiscard]] std::string thumbprint(const std::string& name) const;
};

} // namespace cli_test
