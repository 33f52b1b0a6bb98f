#include "crafted.hpp"

#include "asn1/der.hpp"
#include "crypto/digest.hpp"
#include "crypto/signature.hpp"
#include "keys/context.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>

namespace klunortredi::test {

namespace {

namespace der = csp::der;

Bytes joined(const std::vector<Bytes>& elements) {
    Bytes all;
    for (const Bytes& element : elements) {
        der::append(all, element);
    }
    return all;
}

Bytes optionalSet(unsigned number, const std::vector<Bytes>& members) {
    return members.empty() ? Bytes{} : der::element(der::tag::contextConstructed(number), joined(members));
}

/// The digest of an AlgorithmIdentifier, or the signer's own: to one that is unknown here any signature will do.
const csp::DigestAlgorithm& digestOf(const Bytes& algorithmId, const Signer& signer) {
    der::Reader members(der::readOnly(algorithmId).content);
    const csp::DigestAlgorithm* const digest = csp::findDigest(std::string_view(der::toOid(members.read())));
    return digest == nullptr ? *csp::findDigest(std::string_view(signer.digest)) : *digest;
}

} // namespace

Bytes attribute(const std::string& oid, const std::vector<Bytes>& values) {
    return der::sequence({der::objectIdentifier(oid), der::element(der::tag::Set, joined(values))});
}

Bytes algorithm(const std::string& oid) {
    return der::sequence({der::objectIdentifier(oid)});
}

Crafted honest(const Signer& signer, const Bytes& content) {
    const csp::CertInfo info(signer.certificate);
    const CERT_INFO& certificate = info.get();
    const ByteView issuer(certificate.Issuer.pbData, certificate.Issuer.cbData);
    Bytes serial(certificate.SerialNumber.pbData, certificate.SerialNumber.pbData + certificate.SerialNumber.cbData);
    std::ranges::reverse(serial);
    Crafted crafted;
    crafted.digestAlgorithms = {algorithm(signer.digest)};
    crafted.contentType = "1.2.840.113549.1.7.1";
    crafted.content = content;
    crafted.signedContent = content;
    crafted.certificates = {signer.certificate};
    crafted.signerId = der::sequence({issuer, der::integer(serial)});
    crafted.signerDigest = algorithm(signer.digest);
    const Bytes hash = csp::Digest::of(digestOf(crafted.signerDigest, signer), content);
    crafted.attributes = {
        attribute("1.2.840.113549.1.9.3", {der::objectIdentifier(crafted.contentType)}),
        attribute("1.2.840.113549.1.9.5", {der::element(der::tag::UtcTime, bytes("261120120000Z"))}),
        attribute("1.2.840.113549.1.9.4", {der::octetString(hash)}),
    };
    crafted.signatureAlgorithm = algorithm(certificate.SubjectPublicKeyInfo.Algorithm.pszObjId);
    return crafted;
}

Bytes encodeSignerInfo(const Signer& signer, const Crafted& crafted) {
    const csp::DigestAlgorithm& digest = digestOf(crafted.signerDigest, signer);
    const Bytes attributes = joined(crafted.attributes);
    const Bytes signedOctets = crafted.hasAttributes ? der::element(der::tag::Set, attributes) : crafted.signedContent;
    const Bytes sent = crafted.sentAttributes.empty() ? attributes : joined(crafted.sentAttributes);
    Bytes signature = csp::signingContext(signer.provider)
                          ->sign(signer.keySpec, digest, csp::Digest::of(digest, signedOctets), csp::RsaScheme::pkcs1);
    der::append(signature, crafted.behindSignature);
    return der::sequence({der::integer(1), crafted.signerId, crafted.signerDigest,
                          crafted.hasAttributes ? der::element(der::tag::contextConstructed(0), sent) : Bytes{},
                          crafted.signatureAlgorithm, der::octetString(crafted.signatureValue.value_or(signature)),
                          optionalSet(1, crafted.unsignedAttributes)});
}

Bytes encode(const Signer& signer, const Crafted& crafted) {
    const Bytes content = crafted.content ? der::explicitTag(0, der::octetString(*crafted.content)) : Bytes{};
    const Bytes signerInfos = der::concat({encodeSignerInfo(signer, crafted), joined(crafted.moreSignerInfos)});
    const Bytes signedData = der::sequence(
        {der::integer(1), der::element(der::tag::Set, joined(crafted.digestAlgorithms)),
         der::sequence({der::objectIdentifier(crafted.contentType), content}), optionalSet(0, crafted.certificates),
         optionalSet(1, crafted.crls), der::element(der::tag::Set, signerInfos)});
    return der::sequence({der::objectIdentifier("1.2.840.113549.1.7.2"), der::explicitTag(0, signedData)});
}

} // namespace klunortredi::test
