#include "chains/rollover.hpp"

#include "core/error.hpp"

#include <openssl/x509v3.h>

namespace klunortredi::csp {

bool looksSelfSigned(X509* certificate) {
    return (X509_get_extension_flags(certificate) & EXFLAG_SS) != 0;
}

ossl::X509Ptr withForeignKeyIdentifier(X509* certificate) {
    using KeyIdentifier = std::unique_ptr<AUTHORITY_KEYID, ossl::Deleter<AUTHORITY_KEYID_free>>;
    ossl::X509Ptr copy(X509_dup(certificate));
    const KeyIdentifier foreign(AUTHORITY_KEYID_new());
    if (!copy || !foreign) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    const long own = ASN1_INTEGER_get(X509_get0_serialNumber(certificate));
    foreign->serial = ASN1_INTEGER_new();
    // X509_add1_ext_i2d, unlike X509_add_ext, leaves the signed octets of the copy as they were read.
    if (foreign->serial == nullptr || ASN1_INTEGER_set(foreign->serial, own == 1 ? 2 : 1) != 1 ||
        X509_add1_ext_i2d(copy.get(), NID_authority_key_identifier, foreign.get(), 0, X509V3_ADD_REPLACE) != 1) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    return copy;
}

} // namespace klunortredi::csp
