#pragma once

#include "decoded.hpp"

#include "crypto/wincrypt/handles.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <memory>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::timestamp_glue {

/// A time-stamp token (RFC 3161, 2.4.2) opened with the service.
class Token {
public:
    /// Throws SystemException for what is not a CMS message.
    explicit Token(boost::string_view encoded);

    /// Whether it is a SignedData whose content is a TSTInfo that can be decoded.
    [[nodiscard]] bool isTimestamp() const { return info_ && *info_; }
    /// Only when `isTimestamp`.
    [[nodiscard]] const CRYPT_TIMESTAMP_INFO& info() const { return *info_->operator->(); }
    [[nodiscard]] unsigned signers() const;
    /// The HCRYPTMSG; stays the token's.
    [[nodiscard]] void* message() const { return message_.get(); }
    /// OID of the first signer's digest; empty when there is no signer.
    [[nodiscard]] std::string digestAlgorithm() const;
    /// The values of the first signer's signed attributes of that type, DER.
    [[nodiscard]] std::vector<std::string> signedAttribute(boost::string_view oid) const;
    [[nodiscard]] std::vector<std::string> certificates() const;
    [[nodiscard]] std::vector<std::string> crls() const;

private:
    [[nodiscard]] std::vector<std::string> all(DWORD countParam, DWORD param) const;

    wincrypt::HCRYPTMSG message_;
    std::unique_ptr<Decoded<CRYPT_TIMESTAMP_INFO>> info_; ///< null when the content is something else
};

} // namespace orvik::plugin::timestamp_glue
