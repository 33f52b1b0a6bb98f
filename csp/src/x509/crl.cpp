#include "x509/crl.hpp"

#include "x509/x509_der.hpp"

#include <openssl/pem.h>

namespace klunortredi::csp {

std::optional<Bytes> crlFromFile(ByteView contents) {
    const ossl::ErrorMark mark;
    if (ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, contents)) {
        return Bytes(contents.begin(), contents.end());
    }
    const ossl::Bio in(BIO_new_mem_buf(contents.data(), static_cast<int>(contents.size())));
    const ossl::X509CrlPtr crl(in ? PEM_read_bio_X509_CRL(in.get(), nullptr, nullptr, nullptr) : nullptr);
    return crl ? std::optional(ossl::toDer(i2d_X509_CRL, crl.get())) : std::nullopt;
}

} // namespace klunortredi::csp
