#include "x509/crl.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "x509/x509_der.hpp"

#include <openssl/pem.h>

namespace klunortredi::csp {

std::optional<Bytes> crlDer(ByteView contents) {
    if (!contents.empty() && contents.front() == der::tag::Sequence) {
        return Bytes(contents.begin(), contents.end());
    }
    const ossl::ErrorMark mark;
    const ossl::Bio in(BIO_new_mem_buf(contents.data(), static_cast<int>(contents.size())));
    unsigned char* data = nullptr;
    long size = 0;
    if (!in || PEM_bytes_read_bio(&data, &size, nullptr, PEM_STRING_X509_CRL, in.get(), nullptr, nullptr) != 1) {
        return std::nullopt;
    }
    Bytes octets(data, data + size);
    OPENSSL_free(data);
    return octets;
}

std::optional<CrlHead> crlHead(ByteView der) {
    try {
        der::Reader list = der::Reader(der).enter(der::tag::Sequence).enter(der::tag::Sequence);
        list.readIf(der::tag::Integer);
        der::Reader algorithm = list.enter(der::tag::Sequence);
        const ByteView issuer = list.read(der::tag::Sequence).whole;
        return CrlHead{der::toOid(algorithm.read(der::tag::ObjectIdentifier)), Bytes(issuer.begin(), issuer.end())};
    } catch (const ApiError&) {
        return std::nullopt;
    }
}

} // namespace klunortredi::csp
