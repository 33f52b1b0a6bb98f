// What is refused for its algorithm, what is not judged, and what is malformed: three different answers.

#include "asn1/der.hpp"
#include "core/ossl.hpp"
#include "crafted.hpp"
#include "exports/export.hpp"
#include "x509/x509_der.hpp"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace der = csp::der;
namespace api = csp::exports;

/// The parts of a SubjectPublicKeyInfo as the CryptoAPI takes them.
class KeyInfo {
public:
    explicit KeyInfo(const Bytes& subjectPublicKeyInfo) {
        der::Reader members(der::readOnly(subjectPublicKeyInfo).content);
        der::Reader algorithm = members.enter(der::tag::Sequence);
        oid_ = der::toOid(algorithm.read());
        parameters_.assign(algorithm.rest().begin(), algorithm.rest().end());
        const ByteView key = der::toBitString(members.read()).bits;
        key_.assign(key.begin(), key.end());
        info_ = {{oid_.data(), {static_cast<DWORD>(parameters_.size()), parameters_.data()}},
                 {static_cast<DWORD>(key_.size()), key_.data(), 0}};
    }
    KeyInfo(const KeyInfo&) = delete;
    KeyInfo& operator=(const KeyInfo&) = delete;
    ~KeyInfo() = default;
    [[nodiscard]] CERT_PUBLIC_KEY_INFO* get() { return &info_; }

private:
    std::string oid_;
    Bytes parameters_;
    Bytes key_;
    CERT_PUBLIC_KEY_INFO info_{};
};

DWORD errorWith(const Bytes& encoded, const Bytes& subjectPublicKeyInfo) {
    const Msg msg = Msg::decode();
    EXPECT_EQ(msg.feed(encoded), 0U);
    KeyInfo key(subjectPublicKeyInfo);
    CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters{sizeof parameters, 0, 0, capi::CMSG_VERIFY_SIGNER_PUBKEY, key.get()};
    return api::CryptMsgControl(msg.handle(), 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters) != 0
               ? 0
               : api::GetLastError();
}

Bytes publicKey(EVP_PKEY* key) {
    const csp::ossl::Pkey owner(key);
    return csp::ossl::toDer(i2d_PUBKEY, owner.get());
}

/// SubjectPublicKeyInfo of an RSA key of 2048 bits with this exponent.
Bytes rsaKeyWith(ByteView exponent) {
    Bytes modulus(257, 0xA5);
    modulus.front() = 0;
    const Bytes rsaEncryption = der::sequence({der::objectIdentifier("1.2.840.113549.1.1.1"), der::null()});
    return der::sequence(
        {rsaEncryption, der::bitString(der::sequence({der::integer(modulus), der::integer(exponent)}))});
}

class JudgedAlgorithms : public testing::Test {
protected:
    Signer signer = makeSigner(KeyKind::Rsa);
    Crafted message = honest(signer, bytes("content"));
};

TEST_F(JudgedAlgorithms, BrokenDigestsNeverVerify) {
    for (const char* const oid : {"1.2.840.113549.2.2", "1.2.840.113549.2.4", "1.2.840.113549.2.5"}) {
        Crafted broken = message;
        broken.signerDigest = algorithm(oid);
        broken.digestAlgorithms.push_back(algorithm(oid));
        EXPECT_EQ(verifyStreamed(encode(signer, broken)).error, capi::NTE_BAD_ALGID) << oid;
    }
    for (const char* const oid : {"1.2.840.113549.1.1.2", "1.2.840.113549.1.1.3", "1.2.840.113549.1.1.4"}) {
        Crafted broken = message;
        broken.signatureAlgorithm = algorithm(oid);
        EXPECT_EQ(verifyStreamed(encode(signer, broken)).error, capi::NTE_BAD_ALGID) << oid;
    }
}

TEST_F(JudgedAlgorithms, RsaKeysUnder1024BitsNeverVerify) {
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_RSA_gen(512))), capi::NTE_BAD_KEY);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_RSA_gen(1023))), capi::NTE_BAD_KEY);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_RSA_gen(1024))), capi::NTE_BAD_SIGNATURE) << "judged, and not its own";
    message.signatureAlgorithm = algorithm("1.2.840.113549.1.1.10");
    EXPECT_EQ(errorWith(encode(signer, message), publicKey(EVP_RSA_gen(512))), capi::NTE_BAD_KEY) << "RSASSA-PSS";
}

TEST_F(JudgedAlgorithms, RsaExponentsThatAnybodyCanSignWithNeverVerify) {
    const Bytes encoded = encode(signer, message);
    for (const Bytes& exponent : {Bytes{1}, Bytes{2}, Bytes{6}}) {
        EXPECT_EQ(errorWith(encoded, rsaKeyWith(exponent)), capi::NTE_BAD_KEY) << int{exponent.front()};
    }
    Bytes large(33, 0x01);
    EXPECT_EQ(errorWith(encoded, rsaKeyWith(large)), capi::NTE_BAD_KEY) << "257 bits";
    large.pop_back();
    EXPECT_EQ(errorWith(encoded, rsaKeyWith(large)), capi::NTE_BAD_SIGNATURE) << "249 bits";
    EXPECT_EQ(errorWith(encoded, rsaKeyWith(Bytes{3})), capi::NTE_BAD_SIGNATURE) << "judged, and not its own";
}

TEST_F(JudgedAlgorithms, CurvesUnder160BitsNeverVerify) {
    message.signatureAlgorithm = algorithm("1.2.840.10045.4.3.2");
    message.signatureValue = der::sequence({der::integer(1), der::integer(2)});
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "secp112r1"))), capi::NTE_BAD_KEY);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "secp128r1"))), capi::NTE_BAD_KEY);
    EXPECT_EQ(errorWith(encoded, publicKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "secp160r1"))),
              capi::NTE_BAD_SIGNATURE)
        << "judged, and not its own";
}

TEST_F(JudgedAlgorithms, CurvesWithoutANameAreNotJudged) {
    message.signatureAlgorithm = algorithm("1.2.840.10045.4.3.2");
    message.signatureValue = der::sequence({der::integer(1), der::integer(2)});
    EVP_PKEY* const key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
    EVP_PKEY_set_utf8_string_param(key, OSSL_PKEY_PARAM_EC_ENCODING, "explicit");
    EXPECT_EQ(errorWith(encode(signer, message), publicKey(key)), capi::NTE_BAD_PUBLIC_KEY);
}

TEST_F(JudgedAlgorithms, KeysOfAnUnknownKindAreNotJudged) {
    const Bytes encoded = encode(signer, message);
    for (const char* const oid : {"1.2.840.10040.4.1", "1.3.101.112"}) { // DSA, Ed25519
        const Bytes key = der::sequence({algorithm(oid), der::bitString(der::integer(1))});
        EXPECT_EQ(errorWith(encoded, key), capi::CRYPT_E_UNKNOWN_ALGO) << oid;
    }
}

TEST_F(JudgedAlgorithms, EcdsaValuesThatAreNotDerAreMalformed) {
    const Bytes key = publicKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    message.signatureAlgorithm = algorithm("1.2.840.10045.4.3.2");
    const auto errorOf = [&](const Bytes& value) {
        message.signatureValue = value;
        return errorWith(encode(signer, message), key);
    };
    const Bytes wellFormed = der::sequence({der::integer(1), der::integer(2)});
    EXPECT_EQ(errorOf(wellFormed), capi::NTE_BAD_SIGNATURE);
    EXPECT_EQ(errorOf(Bytes{0x30, 0x07, 0x02, 0x02, 0x00, 0x01, 0x02, 0x01, 0x02}), capi::CRYPT_E_BAD_ENCODE)
        << "a number with a superfluous octet";
    EXPECT_EQ(errorOf(Bytes{0x30, 0x81, 0x06, 0x02, 0x01, 0x01, 0x02, 0x01, 0x02}), capi::CRYPT_E_BAD_ENCODE)
        << "a length that is longer than necessary";
    EXPECT_EQ(errorOf(der::concat({wellFormed, Bytes{0}})), capi::CRYPT_E_BAD_ENCODE) << "an octet after it";
    EXPECT_EQ(errorOf({}), capi::CRYPT_E_BAD_ENCODE);
}

TEST_F(JudgedAlgorithms, EcdsaWithAnUnknownDigestIsNotJudged) {
    message.signatureAlgorithm = algorithm("2.16.840.1.101.3.4.3.10"); // with SHA3-256
    message.signatureValue = der::sequence({der::integer(1), der::integer(2)});
    EXPECT_EQ(errorWith(encode(signer, message), publicKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"))),
              capi::CRYPT_E_UNKNOWN_ALGO);
}

} // namespace
} // namespace klunortredi::test
