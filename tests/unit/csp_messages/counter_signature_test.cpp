// Counter-signatures: signatures over a signer's signature value.

#include "asn1/der.hpp"
#include "core/ossl.hpp"
#include "crafted.hpp"
#include "messages/limits.hpp"
#include "x509/cert_info.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

constexpr const char* counterSignatureOid = "1.2.840.113549.1.9.6";

/// The octets of the signature value of a SignerInfo without unsigned attributes.
Bytes valueOf(const Bytes& signerInfo) {
    der::Reader members(der::readOnly(signerInfo).content);
    der::Element last;
    while (!members.empty()) {
        const der::Element element = members.read();
        if (element.tag == der::tag::OctetString) {
            last = element;
        }
    }
    return {last.content.begin(), last.content.end()};
}

/// An honest counter-signature of a value; contentType has no place in it.
Crafted counter(const Signer& signer, const Bytes& value) {
    Crafted made = honest(signer, value);
    made.attributes.erase(made.attributes.begin());
    return made;
}

class CounterSignatures : public testing::Test {
protected:
    /// SignerInfo 0 with these counter-signatures.
    [[nodiscard]] Msg with(const std::vector<Bytes>& counters) const {
        Crafted changed = message;
        changed.unsignedAttributes = {attribute(counterSignatureOid, counters)};
        changed.signatureValue = value;
        Msg msg = Msg::decode();
        EXPECT_EQ(msg.feed(encode(author, changed)), 0U);
        EXPECT_EQ(msg.verifySigner(0, author.certificate), 0U) << "counter-signatures do not touch the signature";
        return msg;
    }
    /// Parents and errors of the list.
    static std::vector<std::pair<DWORD, DWORD>> judged(const Msg& msg) {
        const Bytes list = msg.param(capi::CMSG_COUNTER_SIGNATURES_PARAM);
        const auto* head = reinterpret_cast<const CMSG_COUNTER_SIGNATURES*>(list.data());
        std::vector<std::pair<DWORD, DWORD>> found;
        for (DWORD i = 0; i < head->cCounterSignature; ++i) {
            found.emplace_back(head->rgCounterSignature[i].dwParent, head->rgCounterSignature[i].dwError);
        }
        return found;
    }
    using List = std::vector<std::pair<DWORD, DWORD>>;
    static constexpr DWORD author0 = capi::CMSG_NO_PARENT;

    Signer author = makeSigner(KeyKind::Gost256);
    Signer witness = makeSigner(KeyKind::Rsa);
    Crafted message = [&] {
        Crafted made = honest(author, bytes("content"));
        made.certificates.push_back(witness.certificate);
        return made;
    }();
    Bytes value = valueOf(encodeSignerInfo(author, message));
};

TEST_F(CounterSignatures, OverTheSignatureValueHold) {
    Crafted bare = counter(witness, value);
    bare.hasAttributes = false;
    const Msg msg = with({encodeSignerInfo(witness, counter(witness, value)), encodeSignerInfo(witness, bare)});
    EXPECT_EQ(judged(msg), (List{{author0, 0}, {author0, 0}}));
}

TEST_F(CounterSignatures, AreGivenWithCertificateAndTime) {
    const Msg msg = with({encodeSignerInfo(witness, counter(witness, value))});
    const Bytes list = msg.param(capi::CMSG_COUNTER_SIGNATURES_PARAM);
    const CMSG_COUNTER_SIGNATURE& one =
        *reinterpret_cast<const CMSG_COUNTER_SIGNATURES*>(list.data())->rgCounterSignature;
    EXPECT_EQ(Bytes(one.Certificate.pbData, one.Certificate.pbData + one.Certificate.cbData), witness.certificate);
    EXPECT_EQ(Bytes(one.SigningTime.pbData, one.SigningTime.pbData + one.SigningTime.cbData),
              der::element(der::tag::UtcTime, bytes("261120120000Z")));
    const csp::CertInfo info(witness.certificate);
    EXPECT_EQ(one.SerialNumber.cbData, info.get().SerialNumber.cbData);
    EXPECT_NE(one.Issuer.cbData, 0U);
    EXPECT_STREQ(one.HashAlgorithm.pszObjId, "2.16.840.1.101.3.4.2.1");
    EXPECT_STREQ(one.HashEncryptionAlgorithm.pszObjId, "1.2.840.113549.1.1.1");
}

TEST_F(CounterSignatures, ThatCannotBeReadAreGivenWithoutAlgorithms) {
    const Msg msg = with({der::sequence({})});
    const Bytes list = msg.param(capi::CMSG_COUNTER_SIGNATURES_PARAM);
    const CMSG_COUNTER_SIGNATURE& one =
        *reinterpret_cast<const CMSG_COUNTER_SIGNATURES*>(list.data())->rgCounterSignature;
    EXPECT_EQ(one.HashAlgorithm.pszObjId, nullptr);
    EXPECT_EQ(one.HashEncryptionAlgorithm.pszObjId, nullptr);
}

TEST_F(CounterSignatures, OverAnythingElseAreInvalid) {
    const Bytes other = bytes("another value");
    Crafted bare = counter(witness, other);
    bare.hasAttributes = false;
    Crafted forged = counter(witness, value);
    forged.signatureValue = Bytes{};
    const Msg msg = with({encodeSignerInfo(witness, counter(witness, other)), encodeSignerInfo(witness, bare),
                          encodeSignerInfo(witness, forged)});
    EXPECT_EQ(judged(msg), (List{{author0, capi::CRYPT_E_HASH_VALUE},
                                 {author0, capi::NTE_BAD_SIGNATURE},
                                 {author0, capi::NTE_BAD_SIGNATURE}}));
}

TEST_F(CounterSignatures, WithAContentTypeAreInvalid) {
    EXPECT_EQ(judged(with({encodeSignerInfo(witness, honest(witness, value))})),
              (List{{author0, capi::CRYPT_E_UNEXPECTED_MSG_TYPE}}));
}

TEST_F(CounterSignatures, OfAnUnknownSignerOrMalformedAreNotJudged) {
    const Signer stranger = makeSigner(KeyKind::Gost256);
    const List found = judged(with({encodeSignerInfo(stranger, counter(stranger, value)), der::sequence({})}));
    EXPECT_EQ(found[0].second, capi::CRYPT_E_SIGNER_NOT_FOUND);
    EXPECT_EQ(found[1].second, capi::CRYPT_E_ASN1_EOD);
}

TEST_F(CounterSignatures, OfCounterSignaturesFollowTheirParents) {
    const Crafted first = counter(witness, value);
    const Bytes firstValue = valueOf(encodeSignerInfo(witness, first));
    Crafted nested = first;
    nested.signatureValue = firstValue;
    nested.unsignedAttributes = {attribute(counterSignatureOid, {encodeSignerInfo(author, counter(author, firstValue)),
                                                                 encodeSignerInfo(author, counter(author, value))})};
    EXPECT_EQ(judged(with({encodeSignerInfo(witness, nested)})),
              (List{{author0, 0}, {0, 0}, {0, capi::CRYPT_E_HASH_VALUE}}));
}

TEST_F(CounterSignatures, OverAValueThatIsSomebodysAttributesNeedSignedAttributes) {
    value = der::setOf({attribute("1.2.3", {der::null()})});
    Crafted bare = counter(witness, value);
    bare.hasAttributes = false;
    Crafted changed = message;
    changed.unsignedAttributes = {attribute(counterSignatureOid, {encodeSignerInfo(witness, bare)})};
    changed.signatureValue = value;
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(author, changed)), 0U);
    EXPECT_EQ(judged(msg), (List{{author0, capi::CRYPT_E_AUTH_ATTR_MISSING}}));
}

TEST_F(CounterSignatures, BeyondTheLimitAreNotJudged) {
    const Bytes one = encodeSignerInfo(witness, counter(witness, value));
    List expected(csp::limits::counterSignatures, {author0, 0});
    EXPECT_EQ(judged(with(std::vector<Bytes>(csp::limits::counterSignatures, one))), expected);
    expected.emplace_back(author0, capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(judged(with(std::vector<Bytes>(csp::limits::counterSignatures + 5, one))), expected);
}

TEST_F(CounterSignatures, NestedDeeplyDoNotHideTheSignature) {
    Crafted made = counter(witness, value);
    made.signatureValue = value;
    Bytes nested = encodeSignerInfo(witness, made);
    for (int level = 0; level < 40; ++level) {
        made.unsignedAttributes = {attribute(counterSignatureOid, {nested})};
        nested = encodeSignerInfo(witness, made);
    }
    const List found = judged(with({nested}));
    ASSERT_EQ(found.size(), csp::limits::counterSignatures + 1);
    EXPECT_EQ(found.back().second, capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(CounterSignatures, ThatAreNotThereGiveAnEmptyList) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(author, message)), 0U);
    EXPECT_EQ(judged(msg), List{});
    EXPECT_EQ(msg.paramError(capi::CMSG_COUNTER_SIGNATURES_PARAM, 1), capi::CRYPT_E_INVALID_INDEX);
}

} // namespace
} // namespace klunortredi::test
