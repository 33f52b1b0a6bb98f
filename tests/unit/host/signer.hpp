#pragma once

/// A signer whose certificate, hashes and signatures come from the openssl command.

#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "support/openssl.hpp"
#include "support/temp_folder.hpp"

#include <iosfwd>
#include <string>

namespace host_test {

/// What a key of one algorithm is called by OpenSSL, in certificates and in XML.
struct SignerAlgorithm {
    std::string newKey; ///< word of openssl req -newkey
    std::string newKeyOption;
    std::string digest; ///< option of openssl dgst
    std::string keyOid;
    std::string hashOid;
    bool littleEndian; ///< signatures leave the back-end with the last octet first
};

/// How GoogleTest writes one.
void PrintTo(const SignerAlgorithm& algorithm, std::ostream* out);

SignerAlgorithm rsaSigner();
SignerAlgorithm gost256Signer();
SignerAlgorithm gost512Signer();

class Signer {
public:
    explicit Signer(SignerAlgorithm algorithm);

    [[nodiscard]] boost::shared_ptr<orvik::plugin::crypto::ICertificate> certificate() const;
    [[nodiscard]] std::string der() const;
    [[nodiscard]] const test_support::TempFolder& folder() const { return folder_; }
    [[nodiscard]] const SignerAlgorithm& algorithm() const { return algorithm_; }
    /// Output of the openssl command over `octets`.
    [[nodiscard]] std::string digest(const std::string& octets, bool sign) const;

    boost::optional<std::uint16_t> keyUsage = std::uint16_t{0x80}; ///< of certificate(): digitalSignature

private:
    SignerAlgorithm algorithm_;
    test_support::TempFolder folder_;
    test_support::Openssl openssl_;
};

} // namespace host_test
