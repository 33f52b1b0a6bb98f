#pragma once

/// Decoded certificates: the parts of a DER certificate, and the CERT_INFO that describes it.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <atomic>
#include <cstdint>
#include <memory>

namespace klunortredi::csp {

/// A CERT_INFO with everything its pointers lead to. The addresses are stable for the object's life.
class CertInfo {
public:
    /// Decodes a DER certificate (strictly one, nothing behind it). Throws ApiError(CRYPT_E_ASN1_...) otherwise.
    explicit CertInfo(ByteView der);
    CertInfo(const CertInfo&) = delete;
    CertInfo& operator=(const CertInfo&) = delete;
    ~CertInfo();

    [[nodiscard]] const CERT_INFO& get() const noexcept { return info_; }
    /// DER of the whole SubjectPublicKeyInfo, as it stands in the certificate.
    [[nodiscard]] ByteView subjectPublicKeyInfo() const noexcept { return subjectPublicKeyInfo_; }
    [[nodiscard]] ByteView encoded() const noexcept { return encoded_; }
    /// Hash of the subject that is the same for names that compare equal (RFC 5280, section 7.1), whatever their
    /// encoding. Different names may share it. Computed when it is first asked for: few certificates are looked up.
    [[nodiscard]] unsigned long subjectHash() const;

private:
    struct Storage;
    CERT_INFO info_{};
    Bytes encoded_;
    Bytes subjectPublicKeyInfo_;
    mutable std::atomic<std::uint64_t> subjectHash_ = 0; ///< with a mark above its 32 bits, once it is known
    std::unique_ptr<Storage> storage_;
};

/// DER AlgorithmIdentifier (RFC 5280, 4.1.1.2). Throws ApiError(CRYPT_E_OID_FORMAT) for a missing or malformed OID,
/// CRYPT_E_BAD_ENCODE for parameters that are not one value.
Bytes encodeAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& algorithm);

/// DER SubjectPublicKeyInfo of a CERT_PUBLIC_KEY_INFO. Errors as of `encodeAlgorithm`.
Bytes encodePublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info);

} // namespace klunortredi::csp
