#include "messages/signing_certificate.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "messages/attribute_rules.hpp"
#include "messages/broken_algorithms.hpp"
#include "messages/signer_match.hpp"
#include "x509/blob.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace klunortredi::csp {

namespace {

/// ESSCertID and ESSCertIDv2. The views lead into the attribute.
struct CertificateId {
    std::string digestOid;
    ByteView hash;
    ByteView issuer; ///< Name; empty when issuerSerial is absent
    ByteView serial; ///< content octets of the INTEGER
};

struct Version {
    std::string_view attributeOid;
    std::string_view defaultDigest;
    bool namesDigest; ///< ESSCertIDv2: an AlgorithmIdentifier may stand first
};

constexpr std::array versions{
    Version{oid::signingCertificate, "1.3.14.3.2.26", false},
    Version{oid::signingCertificateV2, "2.16.840.1.101.3.4.2.1", true},
};

/// IssuerSerial: the issuer is a GeneralNames of one directoryName (RFC 5035, 5.4.1.1).
void readIssuerSerial(der::Reader& members, CertificateId& id) {
    der::Reader issuerSerial = members.enter(der::tag::Sequence);
    der::Reader names = issuerSerial.enter(der::tag::Sequence);
    constexpr unsigned directoryName = 4;
    der::Reader name = names.enter(der::tag::contextConstructed(directoryName));
    id.issuer = name.read(der::tag::Sequence).whole;
    name.finish();
    names.finish();
    id.serial = der::toInteger(issuerSerial.read(der::tag::Integer));
    issuerSerial.finish();
}

CertificateId readId(der::Reader members, const Version& version) {
    CertificateId id;
    id.digestOid = version.defaultDigest;
    if (version.namesDigest && members.next(der::tag::Sequence)) {
        id.digestOid = decodeAlgorithm(members.read().whole).oid;
    }
    id.hash = members.read(der::tag::OctetString).content;
    if (!members.empty()) {
        readIssuerSerial(members, id);
    }
    members.finish();
    return id;
}

/// The first of the certificates named; every other one and the policies are read for their form.
CertificateId readAttribute(ByteView value, const Version& version) {
    der::Reader members(der::readOnly(value, der::tag::Sequence).content);
    der::Reader ids = members.enter(der::tag::Sequence);
    const CertificateId first = readId(ids.enter(der::tag::Sequence), version);
    while (!ids.empty()) {
        readId(ids.enter(der::tag::Sequence), version);
    }
    if (!members.empty()) {
        for (der::Reader policies = members.enter(der::tag::Sequence); !policies.empty();) {
            policies.read(der::tag::Sequence);
        }
    }
    members.finish();
    return first;
}

CertificateId decode(const Bytes& value, const Version& version) {
    try {
        return readAttribute(value, version);
    } catch (const ApiError&) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
}

const DigestAlgorithm& digestOf(const CertificateId& id) {
    refuseBrokenDigest(id.digestOid);
    const DigestAlgorithm* const digest = findDigest(std::string_view(id.digestOid));
    if (digest == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return *digest;
}

/// Issuer and serial number of the certificate, most significant octet first, against those of the attribute.
bool sameIssuerSerial(const CertificateId& id, const CERT_INFO& certificate) {
    const ByteView serial = blobView(certificate.SerialNumber);
    return std::equal(id.serial.begin(), id.serial.end(), serial.rbegin(), serial.rend()) &&
           sameName(id.issuer, blobView(certificate.Issuer));
}

bool names(const CertificateId& id, ByteView certificate) {
    return std::ranges::equal(id.hash, Digest::of(digestOf(id), certificate)) &&
           (id.issuer.empty() || sameIssuerSerial(id, CertInfo(certificate).get()));
}

bool has(const std::vector<Attribute>& attributes, const Version& version) {
    return std::ranges::find(attributes, version.attributeOid, &Attribute::oid) != attributes.end();
}

/// Calls `check` with what each of the attributes that are there names.
template <class Check>
void forEach(const std::vector<Attribute>& attributes, const Check& check) {
    for (const Version& version : versions) {
        if (has(attributes, version)) {
            check(decode(onlyValue(attributes, version.attributeOid), version));
        }
    }
}

} // namespace

bool namesSigningCertificate(const std::vector<Attribute>& signedAttributes) {
    return std::ranges::any_of(versions, [&](const Version& version) { return has(signedAttributes, version); });
}

void checkSigningCertificate(const std::vector<Attribute>& signedAttributes, ByteView certificate) {
    forEach(signedAttributes, [&](const CertificateId& id) {
        if (!names(id, certificate)) {
            fail(capi::CRYPT_E_NO_MATCH);
        }
    });
}

void checkSigningCertificateForm(const std::vector<Attribute>& signedAttributes) {
    forEach(signedAttributes, [](const CertificateId& id) { digestOf(id); });
}

} // namespace klunortredi::csp
