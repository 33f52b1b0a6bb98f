#pragma once

#include "orvik/plugin/crypto/i_certificate_verifier.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt {

/// Builds a certificate's chain with the service's chain engine and keeps its error bits (CERT_TRUST_...). What is
/// valid is the engine's decision, made from the system's stores alone.
class ORVIK_EXPORT CertificateVerifier : public crypto::ICertificateVerifier {
public:
    /// `certificate` must outlive the verifier.
    explicit CertificateVerifier(const crypto::ICertificate& certificate);
    ~CertificateVerifier() override;

    /// Collects the paths of the CA certificates and CRLs in `directory`, one level deep. They are not offered to the
    /// chain engine. Throws boost::filesystem::filesystem_error when the directory cannot be read.
    void initCA(const boost::filesystem::path& directory) override;
    /// True when the chain has no error bit. `flags` are CERT_CHAIN_... Throws SystemException when no chain can be
    /// built at all; the status keeps its value then.
    bool validateChain(unsigned int flags) const override;
    [[nodiscard]] std::uint32_t status() const override;
    /// Name of the most important error bit of `status`; empty when it has none that is known.
    [[nodiscard]] std::string statusString(long status) const override;

    /// Paths that initCA collected so far.
    [[nodiscard]] const std::vector<std::string>& certificateFiles() const;
    [[nodiscard]] const std::vector<std::string>& crlFiles() const;

private:
    struct Impl;
    boost::shared_ptr<Impl> impl_;
};

} // namespace orvik::plugin::wincrypt
