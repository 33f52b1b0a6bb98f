// Messages made to cost much: what is counted before it is computed.

#include "asn1/der.hpp"
#include "core/ossl.hpp"
#include "crafted.hpp"
#include "exports/export.hpp"
#include "in_child.hpp"
#include "messages/limits.hpp"
#include "x509/x509_der.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace api = csp::exports;
namespace der = csp::der;
namespace limits = csp::limits;

constexpr long allowedMib = 200;

/// Judges every signer as the plug-in does: one store for all, one search and one check for each.
bool judgeAll(const Msg& msg) {
    void* const store = api::CertOpenStore(reinterpret_cast<const char*>(capi::CERT_STORE_PROV_MSG),
                                           capi::X509_AND_PKCS_7, 0, 0, msg.handle());
    bool all = store != nullptr;
    std::vector<PCCERT_CONTEXT> kept;
    for (DWORD index = 0; all && index < msg.number(capi::CMSG_SIGNER_COUNT_PARAM); ++index) {
        Bytes id = msg.param(capi::CMSG_SIGNER_CERT_INFO_PARAM, index);
        const PCCERT_CONTEXT found = api::CertFindCertificateInStore(store, capi::X509_AND_PKCS_7, 0,
                                                                     capi::CERT_FIND_SUBJECT_CERT, id.data(), nullptr);
        CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters{sizeof parameters, 0, index, capi::CMSG_VERIFY_SIGNER_CERT,
                                                      const_cast<CERT_CONTEXT*>(found)};
        all = found != nullptr &&
              api::CryptMsgControl(msg.handle(), 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters) != 0;
        kept.push_back(found); // as a caller keeps the certificates that it shows
    }
    for (const PCCERT_CONTEXT one : kept) {
        api::CertFreeCertificateContext(one);
    }
    return all && api::CertCloseStore(store, 0) != 0;
}

class Cost : public testing::Test {
protected:
    [[nodiscard]] static DWORD feedError(const Bytes& message) {
        Collected collected;
        CMSG_STREAM_INFO stream = collected.info();
        return Msg::decode(0, &stream).feed(message, 1U << 16U);
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    Crafted message = honest(signer, bytes("content"));
};

TEST_F(Cost, OfAllSignersAndCertificatesThatAMessageMayHaveIsBounded) {
    const Bytes other = makeSigner(KeyKind::Gost256).certificate;
    message.certificates.assign(limits::certificates - 1, other);
    message.certificates.push_back(signer.certificate);
    message.moreSignerInfos.assign(limits::signers - 1, encodeSignerInfo(signer, message));
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(inChild(allowedMib,
                      [&] {
                          const Msg msg = Msg::decode();
                          return msg.feed(encoded) == 0 && msg.number(capi::CMSG_SIGNER_COUNT_PARAM) == 256 &&
                                 judgeAll(msg);
                      }),
              0);
}

TEST_F(Cost, OfMillionsOfAttributeValuesIsBounded) {
    constexpr std::size_t values = 7'900'000;
    Bytes set(2 * values); // of NULL, 05 00
    for (std::size_t i = 0; i < set.size(); i += 2) {
        set[i] = der::tag::Null;
    }
    message.unsignedAttributes = {der::sequence({der::objectIdentifier("1.2.3"), der::element(der::tag::Set, set)})};
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(inChild(allowedMib, [&] { return feedError(encoded) == capi::CRYPT_E_ASN1_LARGE; }), 0);
}

TEST_F(Cost, AttributesAndValuesAreCountedAtTheirLimits) {
    const auto errorOf = [&](std::size_t attributes, std::size_t valuesEach) {
        message.unsignedAttributes.assign(attributes, attribute("1.2.3", std::vector<Bytes>(valuesEach, der::null())));
        return feedError(encode(signer, message));
    };
    EXPECT_EQ(errorOf(limits::attributes, 1), 0U);
    EXPECT_EQ(errorOf(limits::attributes + 1, 0), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(errorOf(1, limits::attributeValues), 0U);
    EXPECT_EQ(errorOf(1, limits::attributeValues + 1), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(errorOf(2, limits::attributeValues / 2 + 1), capi::CRYPT_E_ASN1_LARGE) << "of all attributes together";
}

TEST_F(Cost, OctetsThatAreHashedAgainAndAgainAreCounted) {
    const auto errorOf = [&](const Crafted& changed) { return feedError(encode(signer, changed)); };
    Crafted large = message;
    large.signatureValue = Bytes(limits::signatureValue);
    EXPECT_EQ(errorOf(large), 0U);
    large.signatureValue->push_back(0);
    EXPECT_EQ(errorOf(large), capi::CRYPT_E_ASN1_LARGE);
    large = message;
    large.attributes.push_back(attribute("1.2.3", {der::octetString(Bytes(limits::signedAttributes))}));
    EXPECT_EQ(errorOf(large), capi::CRYPT_E_ASN1_LARGE);
    large = message;
    large.certificates.push_back(der::sequence({der::octetString(Bytes(limits::certificate))}));
    EXPECT_EQ(errorOf(large), capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(Cost, OfALongRevocationListIsItsSize) {
    const Bytes entry = der::sequence({der::integer(1), der::element(der::tag::UtcTime, bytes("260101000000Z"))});
    Bytes entries;
    while (entries.size() < 15'000'000) {
        der::append(entries, entry);
    }
    const Bytes list = der::sequence(
        {der::element(der::tag::Sequence, entries), algorithm("1.2.840.113549.1.1.11"), der::bitString(Bytes(256))});
    message.crls = {list};
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(inChild(allowedMib, [&] { return feedError(encoded) == 0; }), 0);
}

TEST_F(Cost, ExtensionsOfACertificateAreCounted) {
    const auto errorOf = [&](int count) {
        const unsigned char* next = signer.certificate.data();
        const csp::ossl::X509Ptr certificate(d2i_X509(nullptr, &next, static_cast<long>(signer.certificate.size())));
        while (X509_get_ext_count(certificate.get()) < count) {
            X509_add_ext(certificate.get(), X509_get_ext(certificate.get(), 0), -1);
        }
        i2d_re_X509_tbs(certificate.get(), nullptr); // encoded anew
        message.certificates = {csp::ossl::toDer(i2d_X509, certificate.get())};
        return feedError(encode(signer, message));
    };
    EXPECT_EQ(errorOf(limits::extensions), 0U);
    EXPECT_EQ(errorOf(limits::extensions + 1), capi::CRYPT_E_ASN1_LARGE);
}

} // namespace
} // namespace klunortredi::test
