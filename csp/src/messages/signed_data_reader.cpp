#include "messages/signed_data_reader.hpp"

#include "asn1/der.hpp"
#include "asn1/limit_error.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace klunortredi::csp {

namespace {

using structure::none;
using structure::octetString;
using structure::Presence;
using structure::Row;
using structure::Treatment;

/// A place in the structure.
enum Node : structure::Node {
    Outside = structure::outside,
    ContentInfo,
    ContentType,
    ExplicitContent,
    SignedData,
    Version,
    DigestAlgorithms,
    DigestAlgorithm,
    EncapContentInfo,
    EContentType,
    ExplicitEContent,
    EContent,
    Segment,
    Certificates,
    Certificate,
    Crls,
    Crl,
    SignerInfos,
    SignerInfo,
};

// clang-format off
constexpr auto grammar = std::to_array<Row>({
    {Outside, ContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {ContentInfo, ContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {ContentInfo, ExplicitContent, {0xA0}, Presence::Required, Treatment::Descend, none},
    {ExplicitContent, SignedData, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {SignedData, Version, {der::tag::Integer}, Presence::Required, Treatment::Keep, limits::smallElement},
    {SignedData, DigestAlgorithms, {der::tag::Set}, Presence::Required, Treatment::Descend, none},
    {SignedData, EncapContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {SignedData, Certificates, {0xA0}, Presence::Optional, Treatment::Descend, none},
    {SignedData, Crls, {0xA1}, Presence::Optional, Treatment::Descend, none},
    {SignedData, SignerInfos, {der::tag::Set}, Presence::Required, Treatment::Descend, none},
    {DigestAlgorithms, DigestAlgorithm, {der::tag::Sequence}, Presence::Repeated, Treatment::Keep, limits::smallElement},
    {EncapContentInfo, EContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {EncapContentInfo, ExplicitEContent, {0xA0}, Presence::Optional, Treatment::Descend, none},
    {ExplicitEContent, EContent, octetString, Presence::Required, Treatment::Descend, none},
    {EContent, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
    {Segment, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
    {Certificates, Certificate, {der::tag::Sequence, 0xA0, 0xA1, 0xA2, 0xA3}, Presence::Repeated, Treatment::KeepRaw, limits::certificate},
    {Crls, Crl, {der::tag::Sequence, 0xA1}, Presence::Repeated, Treatment::KeepRaw, limits::retainedOctets},
    {SignerInfos, SignerInfo, {der::tag::Sequence}, Presence::Repeated, Treatment::Keep, limits::retainedOctets},
});
// clang-format on

/// DER of id-signedData, 1.2.840.113549.1.7.2.
constexpr std::array<std::uint8_t, 11> signedDataType{0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};

void append(std::vector<Bytes>& list, Bytes&& element, std::size_t limit, const char* of) {
    if (list.size() == limit) {
        failAtLimit(limit, of);
    }
    list.push_back(std::move(element));
}

} // namespace

SignedDataReader::SignedDataReader(SignedDataListener& listener) : listener_(listener), reader_(grammar, *this) {}

void SignedDataReader::began(structure::Node node, std::uint64_t position) {
    if (node == EncapContentInfo) {
        parts_.encapContentInfoBegin = position;
    }
    parts_.hasContent = parts_.hasContent || node == EContent;
}

void SignedDataReader::ended(structure::Node node, std::uint64_t position) {
    if (node == EncapContentInfo) {
        parts_.encapContentInfoEnd = position;
    }
}

void SignedDataReader::kept(structure::Node node, Bytes&& element) {
    switch (node) {
    case ContentType:
        if (!std::ranges::equal(element, signedDataType)) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        parts_.contentType = std::move(element);
        return;
    case Version:
        parts_.version = std::move(element);
        return;
    case DigestAlgorithm:
        append(parts_.digestAlgorithms, std::move(element), limits::digestAlgorithms, "digest algorithms");
        return;
    case EContentType:
        parts_.eContentType = std::move(element);
        listener_.contentBegins(parts_);
        return;
    case Certificate:
        append(parts_.certificates, std::move(element), limits::certificates, "certificates");
        return;
    case Crl:
        append(parts_.crls, std::move(element), limits::certificates, "CRLs");
        return;
    case SignerInfo:
        append(parts_.signerInfos, std::move(element), limits::signers, "signers");
        return;
    default:
        fail(capi::CRYPT_E_MSG_ERROR); // no other node is kept
    }
}

} // namespace klunortredi::csp
