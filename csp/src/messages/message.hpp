#pragma once

/// Messages: what an HCRYPTMSG stands for.

#include "core/bytes.hpp"

#include <memory>
#include <vector>

namespace klunortredi::csp {

/// What a message store (CERT_STORE_PROV_MSG) reads of a message.
class CertificateCarrier {
public:
    CertificateCarrier() = default;
    CertificateCarrier(const CertificateCarrier&) = delete;
    CertificateCarrier& operator=(const CertificateCarrier&) = delete;
    virtual ~CertificateCarrier() = default;

    /// DER of each certificate carried, in order; attribute certificates and other kinds left out.
    [[nodiscard]] virtual std::vector<Bytes> certificates() const = 0;
    /// DER of each CRL carried.
    [[nodiscard]] virtual std::vector<Bytes> crls() const = 0;
};

/// The message behind a handle. Throws ApiError(ERROR_INVALID_HANDLE) for a handle that is not one of ours.
std::shared_ptr<CertificateCarrier> certificateCarrier(void* hMsg);

} // namespace klunortredi::csp
