#pragma once

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <openssl/evp.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace bench {

/// A GOST R 34.10-2012 (256) signer in a container of the embedded service, in a data directory that goes with it, and
/// the same key as OpenSSL holds it.
class Signer {
public:
    Signer();
    Signer(const Signer&) = delete;
    Signer& operator=(const Signer&) = delete;
    ~Signer();

    [[nodiscard]] const boost::shared_ptr<orvik::plugin::crypto::ICertificate>& certificate() const noexcept {
        return certificate_;
    }
    [[nodiscard]] EVP_PKEY* rawKey() const noexcept { return rawKey_.get(); }

private:
    std::filesystem::path home_;
    boost::shared_ptr<orvik::plugin::crypto::ICertificate> certificate_;
    std::shared_ptr<EVP_PKEY> rawKey_;
};

/// The process's signer, made when it is asked for first.
const Signer& signer();

} // namespace bench
