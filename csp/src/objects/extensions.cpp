#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/time.hpp"
#include "x509/blob.hpp"

namespace klunortredi::csp {

namespace {

bool isSet(const FILETIME& time) {
    return time.dwLowDateTime != 0 || time.dwHighDateTime != 0;
}

Bytes encodeMoment(unsigned number, const FILETIME& time) {
    return isSet(time) ? der::implicitTag(number, encodeGeneralizedTime(time)) : Bytes{};
}

Bytes encodePolicy(const CERT_POLICY_INFO& policy) {
    std::vector<Bytes> qualifiers;
    for (const CERT_POLICY_QUALIFIER_INFO& qualifier :
         arrayArgument(policy.cPolicyQualifier, policy.rgPolicyQualifier)) {
        const Bytes value = qualifier.Qualifier.cbData == 0 ? Bytes{} : anyArgument(qualifier.Qualifier);
        qualifiers.push_back(der::sequence({oidArgument(qualifier.pszPolicyQualifierId), value}));
    }
    return der::sequence(
        {oidArgument(policy.pszPolicyIdentifier), qualifiers.empty() ? Bytes{} : der::sequence(qualifiers)});
}

void decodePolicy(const der::Element& policy, std::size_t offset, StructBuilder& out) {
    der::Reader reader(contentOf(policy, der::tag::Sequence));
    putOid(out, offset + offsetof(CERT_POLICY_INFO, pszPolicyIdentifier), reader.read(der::tag::ObjectIdentifier));
    if (reader.empty()) {
        return;
    }
    const auto qualifiers = elementsOf(reader.read(der::tag::Sequence).content);
    reader.finish();
    std::size_t at =
        putArray<CERT_POLICY_QUALIFIER_INFO>(out, offset + offsetof(CERT_POLICY_INFO, cPolicyQualifier),
                                             offset + offsetof(CERT_POLICY_INFO, rgPolicyQualifier), qualifiers.size());
    for (const der::Element& qualifier : qualifiers) {
        der::Reader parts(contentOf(qualifier, der::tag::Sequence));
        putOid(out, at + offsetof(CERT_POLICY_QUALIFIER_INFO, pszPolicyQualifierId),
               parts.read(der::tag::ObjectIdentifier));
        if (!parts.empty()) {
            out.blob(at + offsetof(CERT_POLICY_QUALIFIER_INFO, Qualifier), parts.read().whole);
        }
        parts.finish();
        at += sizeof(CERT_POLICY_QUALIFIER_INFO);
    }
}

Bytes encodeValidity(const CERT_PRIVATE_KEY_VALIDITY& validity) {
    return der::sequence({encodeMoment(0, validity.NotBefore), encodeMoment(1, validity.NotAfter)});
}

CERT_PRIVATE_KEY_VALIDITY decodeValidity(const der::Element& value) {
    der::Reader reader(value.content);
    CERT_PRIVATE_KEY_VALIDITY validity{};
    if (const auto notBefore = reader.readIf(der::tag::context(0))) {
        validity.NotBefore = decodeGeneralizedTime(notBefore->content);
    }
    if (const auto notAfter = reader.readIf(der::tag::context(1))) {
        validity.NotAfter = decodeGeneralizedTime(notAfter->content);
    }
    reader.finish();
    return validity;
}

} // namespace

Bytes encodeExtensions(const CERT_EXTENSIONS& info) {
    return extensionsArgument(info.cExtension, info.rgExtension);
}

void decodeExtensions(const der::Element& value, StructBuilder& out) {
    putExtensions(out, offsetof(CERT_EXTENSIONS, cExtension), offsetof(CERT_EXTENSIONS, rgExtension),
                  contentOf(value, der::tag::Sequence));
}

Bytes encodeKeyUsage(const CRYPT_BIT_BLOB& info) {
    return namedBitsArgument(info);
}

void decodeKeyUsage(const der::Element& value, StructBuilder& out) {
    putBits(out, 0, expectTag(value, der::tag::BitString));
}

Bytes encodeBasicConstraints(const CERT_BASIC_CONSTRAINTS2_INFO& info) {
    return der::sequence(
        {info.fCA != 0 ? der::boolean(true) : Bytes{},
         info.fPathLenConstraint != 0 ? der::integer(std::int64_t{info.dwPathLenConstraint}) : Bytes{}});
}

void decodeBasicConstraints(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    auto& info = out.at<CERT_BASIC_CONSTRAINTS2_INFO>(0);
    // DER leaves `cA FALSE` out; many certificates of other tools write it.
    if (const auto ca = reader.readIf(der::tag::Boolean)) {
        info.fCA = der::toBool(*ca) ? 1 : 0;
    }
    if (const auto length = reader.readIf(der::tag::Integer)) {
        info.fPathLenConstraint = 1;
        info.dwPathLenConstraint = der::toUint32(*length);
    }
    reader.finish();
}

Bytes encodePolicies(const CERT_POLICIES_INFO& info) {
    std::vector<Bytes> policies;
    for (const CERT_POLICY_INFO& policy : arrayArgument(info.cPolicyInfo, info.rgPolicyInfo)) {
        policies.push_back(encodePolicy(policy));
    }
    return der::sequence(policies);
}

void decodePolicies(const der::Element& value, StructBuilder& out) {
    const auto policies = elementsOf(contentOf(value, der::tag::Sequence));
    std::size_t at = putArray<CERT_POLICY_INFO>(out, offsetof(CERT_POLICIES_INFO, cPolicyInfo),
                                                offsetof(CERT_POLICIES_INFO, rgPolicyInfo), policies.size());
    for (const der::Element& policy : policies) {
        decodePolicy(policy, at, out);
        at += sizeof(CERT_POLICY_INFO);
    }
}

Bytes encodeEnhancedKeyUsage(const CERT_ENHKEY_USAGE& info) {
    std::vector<Bytes> usages;
    for (const char* const usage : arrayArgument(info.cUsageIdentifier, info.rgpszUsageIdentifier)) {
        usages.push_back(oidArgument(usage));
    }
    return der::sequence(usages);
}

void decodeEnhancedKeyUsage(const der::Element& value, StructBuilder& out) {
    const auto usages = elementsOf(contentOf(value, der::tag::Sequence));
    std::size_t at = putArray<char*>(out, offsetof(CERT_ENHKEY_USAGE, cUsageIdentifier),
                                     offsetof(CERT_ENHKEY_USAGE, rgpszUsageIdentifier), usages.size());
    for (const der::Element& usage : usages) {
        putOid(out, at, expectTag(usage, der::tag::ObjectIdentifier));
        at += sizeof(char*);
    }
}

Bytes encodeKeyAttributes(const CERT_KEY_ATTRIBUTES_INFO& info) {
    const ByteView keyId = blobView(info.KeyId);
    const CERT_PRIVATE_KEY_VALIDITY* const period = info.pPrivateKeyUsagePeriod;
    return der::sequence({keyId.empty() ? Bytes{} : der::octetString(keyId),
                          optionalNamedBitsArgument(info.IntendedKeyUsage),
                          period == nullptr ? Bytes{} : encodeValidity(*period)});
}

void decodeKeyAttributes(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    if (const auto keyId = reader.readIf(der::tag::OctetString)) {
        out.blob(offsetof(CERT_KEY_ATTRIBUTES_INFO, KeyId), keyId->content);
    }
    if (const auto usage = reader.readIf(der::tag::BitString)) {
        putBits(out, offsetof(CERT_KEY_ATTRIBUTES_INFO, IntendedKeyUsage), *usage);
    }
    if (const auto period = reader.readIf(der::tag::Sequence)) {
        const CERT_PRIVATE_KEY_VALIDITY validity = decodeValidity(*period);
        const std::size_t at = out.reserve(sizeof validity, alignof(CERT_PRIVATE_KEY_VALIDITY));
        out.at<CERT_PRIVATE_KEY_VALIDITY>(at) = validity;
        out.point(offsetof(CERT_KEY_ATTRIBUTES_INFO, pPrivateKeyUsagePeriod), at);
    }
    reader.finish();
}

} // namespace klunortredi::csp
