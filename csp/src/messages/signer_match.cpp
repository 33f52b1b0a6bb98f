#include "messages/signer_match.hpp"

#include "asn1/der.hpp"
#include "x509/blob.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>
#include <cstring>
#include <span>

namespace klunortredi::csp {

namespace {

bool hasKeyId(const CERT_INFO& certificate, const Bytes& keyId) {
    for (const CERT_EXTENSION& extension : std::span(certificate.rgExtension, certificate.cExtension)) {
        if (extension.pszObjId != nullptr && extension.pszObjId == oid::subjectKeyIdentifier) {
            return std::ranges::equal(blobView(extension.Value), der::octetString(keyId));
        }
    }
    return false;
}

} // namespace

bool sameName(ByteView a, ByteView b) {
    if (std::ranges::equal(a, b)) {
        return true;
    }
    const auto first = ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, a);
    const auto second = ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, b);
    return first && second && X509_NAME_cmp(first.get(), second.get()) == 0;
}

bool namesCertificate(const SignerId& id, const CERT_INFO& certificate) {
    if (id.issuer.empty()) {
        return hasKeyId(certificate, id.keyId);
    }
    const ByteView serial = blobView(certificate.SerialNumber); // least significant octet first
    return std::equal(id.serial.rbegin(), id.serial.rend(), serial.begin(), serial.end()) &&
           sameName(id.issuer, blobView(certificate.Issuer));
}

} // namespace klunortredi::csp
