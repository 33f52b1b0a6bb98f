#pragma once

#include "orvik/plugin/crypto/name_info.hpp"
#include "orvik/plugin/export.hpp"

#include <memory>
#include <string>

namespace orvik::plugin::ssl {

/// The framework's own certificate parser, over OpenSSL's ASN.1 templates.
class ORVIK_EXPORT Certificate {
public:
    /// Throws CryptoException badCertificateData when `der` is not a certificate.
    explicit Certificate(const std::string& der);
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;
    ~Certificate();

    [[nodiscard]] crypto::NameInfo issuerNameInfo() const;
    [[nodiscard]] crypto::NameInfo subjectNameInfo() const;
    [[nodiscard]] crypto::EnhancedKeyUsage enhancedKeyUsage() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace orvik::plugin::ssl
