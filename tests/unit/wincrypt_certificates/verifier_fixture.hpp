#pragma once

#include "certificates_fixture.hpp"

#include "crypto/wincrypt/certificate_verifier.hpp"

#include <optional>

namespace wincrypt_certificates {

/// A certificate and its verifier, gone before the books are balanced.
class VerifierFixture : public CertificatesFixture {
protected:
    VerifierFixture() { verifier_.emplace(*signer_); }
    void TearDown() override {
        verifier_.reset();
        signer_.reset();
        CertificatesFixture::TearDown();
    }

    [[nodiscard]] Certificate& signer() const { return *signer_; }
    [[nodiscard]] orvik::plugin::wincrypt::CertificateVerifier& verifier() { return *verifier_; }

    /// How the service is asked for the signer's chain.
    static std::string chainCall(const std::string& flags) {
        return "CertGetCertificateChain(null, certificate2, null, null, pointer, " + flags + ", null, pointer)";
    }

private:
    boost::shared_ptr<Certificate> signer_ = certificate();
    std::optional<orvik::plugin::wincrypt::CertificateVerifier> verifier_;
};

} // namespace wincrypt_certificates
