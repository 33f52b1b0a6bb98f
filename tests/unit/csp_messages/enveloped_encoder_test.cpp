// Enveloped messages that the service makes: the openssl command reads them, and every wrong argument is refused.

#include "asn1/der.hpp"
#include "enveloping.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

constexpr const char* aes256Gcm = "2.16.840.1.101.3.4.1.46";
constexpr const char* kuznyechik = "1.2.643.7.1.1.5.2.1";
constexpr const char* kuznyechikOmac = "1.2.643.7.1.1.5.2.2";
constexpr const char* magma = "1.2.643.7.1.1.5.1.1";
constexpr const char* magmaOmac = "1.2.643.7.1.1.5.1.2";
constexpr const char* gost28147 = "1.2.643.2.2.21";

/// Recipients that all tests use: keys take time.
struct Recipients {
    TempFolder folder;
    Recipient rsa = makeRecipient(folder, "rsa", "rsa:2048");
    Recipient other = makeRecipient(folder, "other", "rsa:2048");
    Recipient gost256 = makeRecipient(folder, "gost256", "gost2012_256 -pkeyopt paramset:TCA");
    Recipient gost512 = makeRecipient(folder, "gost512", "gost2012_512 -pkeyopt paramset:A");
};
const Recipients& recipients() {
    static const Recipients made;
    return made;
}

Bytes someContent(std::size_t size) {
    Bytes content(size);
    std::uint32_t state = 1;
    for (std::uint8_t& octet : content) {
        state = state * 1664525 + 1013904223;
        octet = static_cast<std::uint8_t>(state >> 24U);
    }
    return content;
}

/// What the openssl command gives for the message, "" included; its words when it refuses.
std::string judged(const Recipient& recipient, const Enveloped& made) {
    if (made.error != 0) {
        return "error " + std::to_string(made.error);
    }
    try {
        const Bytes plaintext = opensslDecrypt(recipients().folder, recipient, made.message);
        return {plaintext.begin(), plaintext.end()};
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

std::string text(const Bytes& content) {
    return {content.begin(), content.end()};
}

struct Form {
    const char* name;
    const char* cipher;
    const Recipient& (*recipient)();
};
void PrintTo(const Form& form, std::ostream* out) {
    *out << form.name;
}

const Recipient& rsa() {
    return recipients().rsa;
}
const Recipient& gost256() {
    return recipients().gost256;
}
const Recipient& gost512() {
    return recipients().gost512;
}

class EnvelopedForm : public testing::TestWithParam<Form> {};

TEST_P(EnvelopedForm, IsReadByOpenssl) {
    const Recipient& recipient = GetParam().recipient();
    EnvelopOptions options;
    options.cipher = GetParam().cipher;
    // The engine decrypts the ACPKM modes with other sections, from 1 KiB on, than it encrypts with.
    const bool sections = options.cipher.starts_with("1.2.643.7.1.1.5.");
    for (const std::size_t size : {std::size_t{1}, std::size_t{16}, std::size_t{sections ? 1000U : 200000U}}) {
        const Bytes content = someContent(size);
        options.streamed = true;
        options.contentSize = capi::CMSG_INDEFINITE_LENGTH;
        options.chunk = 4099;
        EXPECT_TRUE(judged(recipient, tryEnvelop({recipient}, content, options)) == text(content)) << "BER " << size;
        options.contentSize = static_cast<DWORD>(size);
        const Enveloped definite = tryEnvelop({recipient}, content, options);
        EXPECT_NO_THROW(der::readOnly(definite.message)) << "definite lengths";
        EXPECT_TRUE(judged(recipient, definite) == text(content)) << "DER " << size;
        options.streamed = false;
        EXPECT_TRUE(judged(recipient, tryEnvelop({recipient}, content, options)) == text(content)) << "whole " << size;
    }
}

const Form forms[] = {
    {"RsaAes256Cbc", "2.16.840.1.101.3.4.1.42", rsa},
    {"RsaAes128Cbc", "2.16.840.1.101.3.4.1.2", rsa},
    {"RsaAes256Gcm", aes256Gcm, rsa},
    {"RsaTripleDes", "1.2.840.113549.3.7", rsa},
    {"Gost256Gost28147", gost28147, gost256},
    {"Gost512Gost28147", gost28147, gost512},
    {"Gost256Kuznyechik", kuznyechik, gost256},
    {"Gost512Kuznyechik", kuznyechik, gost512},
    {"Gost256KuznyechikOmac", kuznyechikOmac, gost256},
    {"Gost512KuznyechikOmac", kuznyechikOmac, gost512},
    {"Gost256Magma", magma, gost256},
    {"Gost512Magma", magma, gost512},
    {"Gost256MagmaOmac", magmaOmac, gost256},
    {"Gost512MagmaOmac", magmaOmac, gost512},
};
const auto formName = [](const testing::TestParamInfo<Form>& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(Forms, EnvelopedForm, testing::ValuesIn(forms), formName);

class EnvelopedEncoder : public testing::Test {
protected:
    Bytes content = someContent(1000);
    EnvelopOptions options;

    DWORD errorOf(const std::function<void(CMSG_ENVELOPED_ENCODE_INFO&)>& spoil) {
        options.spoil = spoil;
        return tryEnvelop({rsa()}, content, options).error;
    }
};

TEST_F(EnvelopedEncoder, EveryRecipientReadsTheMessage) {
    const Enveloped made = tryEnvelop({rsa(), recipients().other}, content);
    EXPECT_EQ(made.finalCalls, 1U);
    EXPECT_EQ(judged(rsa(), made), text(content));
    EXPECT_EQ(judged(recipients().other, made), text(content));
    options.cipher = kuznyechikOmac;
    const Enveloped gost = tryEnvelop({gost256(), gost512()}, content, options);
    EXPECT_EQ(judged(gost256(), gost), text(content));
    EXPECT_EQ(judged(gost512(), gost), text(content));
}

TEST_F(EnvelopedEncoder, EncryptsEmptyContent) {
    EXPECT_EQ(judged(rsa(), tryEnvelop({rsa()}, {}, options)), "");
    options.cipher = aes256Gcm;
    options.contentSize = 0;
    const Enveloped made = tryEnvelop({rsa()}, {}, options);
    EXPECT_EQ(made.error, 0U);
    EXPECT_NO_THROW(der::readOnly(made.message));
}

TEST_F(EnvelopedEncoder, EachMessageHasKeysAndVectorsOfItsOwn) {
    EXPECT_NE(tryEnvelop({rsa()}, content).message, tryEnvelop({rsa()}, content).message);
}

TEST_F(EnvelopedEncoder, RefusesContentOfAnotherSizeThanTold) {
    options.contentSize = static_cast<DWORD>(content.size() - 1);
    EXPECT_EQ(tryEnvelop({rsa()}, content, options).error, capi::CRYPT_E_BAD_LEN);
    options.contentSize = static_cast<DWORD>(content.size() + 1);
    EXPECT_EQ(tryEnvelop({rsa()}, content, options).error, capi::CRYPT_E_BAD_LEN);
}

TEST_F(EnvelopedEncoder, RefusesKeysAndCiphersOfDifferentKinds) {
    options.cipher = kuznyechikOmac;
    EXPECT_EQ(tryEnvelop({rsa()}, content, options).error, capi::NTE_BAD_ALGID);
    EXPECT_EQ(tryEnvelop({gost256(), rsa()}, content, options).error, capi::NTE_BAD_ALGID);
    options.cipher = aes256Gcm;
    EXPECT_EQ(tryEnvelop({gost256()}, content, options).error, capi::NTE_BAD_ALGID);
}

TEST_F(EnvelopedEncoder, RefusesWhatItCannotDo) {
    options.cipher = "1.2.3.4";
    EXPECT_EQ(tryEnvelop({rsa()}, content, options).error, capi::CRYPT_E_UNKNOWN_ALGO);
    options.cipher = aes256Gcm;
    options.flags = capi::CMSG_DETACHED_FLAG;
    EXPECT_EQ(tryEnvelop({rsa()}, content, options).error, capi::NTE_BAD_FLAGS);
    options.flags = 0;
    options.parameters = der::octetString(Bytes(12));
    EXPECT_NE(tryEnvelop({rsa()}, content, options).error, 0U) << "an initialisation vector of the caller's";
    options.parameters.clear();
    EXPECT_EQ(tryEnvelop({}, content, options).error, capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.cbSize = 65; }), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.cRecipients = 1025; }), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.rgpRecipients = nullptr; }), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.rgpRecipients[0] = nullptr; }), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.pvEncryptionAuxInfo = &info; }), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(errorOf([](auto& info) { info.cCertEncoded = 1; }), capi::ERROR_NOT_SUPPORTED);
    EXPECT_EQ(errorOf([](auto& info) { info.ContentEncryptionAlgorithm.pszObjId = nullptr; }),
              capi::ERROR_INVALID_PARAMETER);
}

TEST_F(EnvelopedEncoder, TakesTheShortStructure) {
    options.spoil = [](CMSG_ENVELOPED_ENCODE_INFO& info) {
        info.cbSize = 64;
        info.cCertEncoded = 7; // not part of it
    };
    EXPECT_EQ(judged(rsa(), tryEnvelop({rsa()}, content, options)), text(content));
}

// ---- recipients described one by one

CERT_ID idOf(const CERT_INFO& info) {
    CERT_ID id{};
    id.dwIdChoice = capi::CERT_ID_ISSUER_SERIAL_NUMBER;
    id.u.IssuerSerialNumber = {info.Issuer, info.SerialNumber};
    return id;
}

/// A recipient by key transport under `algorithm` (null: the key's own).
struct Transported {
    explicit Transported(const Recipient& recipient, const char* algorithm = nullptr) {
        const CERT_INFO& certificate = recipient.info->get();
        info.cbSize = sizeof info;
        info.KeyEncryptionAlgorithm = certificate.SubjectPublicKeyInfo.Algorithm;
        if (algorithm != nullptr) {
            info.KeyEncryptionAlgorithm = {const_cast<char*>(algorithm), {}};
        }
        info.RecipientPublicKey = certificate.SubjectPublicKeyInfo.PublicKey;
        info.RecipientId = idOf(certificate);
        choice.dwRecipientChoice = capi::CMSG_KEY_TRANS_RECIPIENT;
        choice.u.pKeyTrans = &info;
    }
    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO info{};
    CMSG_RECIPIENT_ENCODE_INFO choice{};
};

/// A recipient by key agreement.
struct Agreed {
    Agreed(const Recipient& recipient, const char* wrap) {
        const CERT_INFO& certificate = recipient.info->get();
        key.cbSize = sizeof key;
        key.RecipientPublicKey = certificate.SubjectPublicKeyInfo.PublicKey;
        key.RecipientId = idOf(certificate);
        algorithm = certificate.SubjectPublicKeyInfo.Algorithm;
        info.cbSize = sizeof info;
        info.KeyWrapAlgorithm.pszObjId = const_cast<char*>(wrap);
        info.dwKeyChoice = capi::CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE;
        info.u.pEphemeralAlgorithm = &algorithm;
        info.cRecipientEncryptedKeys = 1;
        info.rgpRecipientEncryptedKeys = &keys;
        choice.dwRecipientChoice = capi::CMSG_KEY_AGREE_RECIPIENT;
        choice.u.pKeyAgree = &info;
    }
    CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO key{};
    CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO* keys = &key;
    CRYPT_ALGORITHM_IDENTIFIER algorithm{};
    CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO info{};
    CMSG_RECIPIENT_ENCODE_INFO choice{};
};

Enveloped envelopFor(CMSG_RECIPIENT_ENCODE_INFO& recipient, ByteView content, const char* cipher) {
    EnvelopOptions options;
    options.cipher = cipher;
    options.spoil = [&](CMSG_ENVELOPED_ENCODE_INFO& info) {
        info.cRecipients = 1;
        info.rgCmsRecipients = &recipient;
    };
    return tryEnvelop({}, content, options);
}

TEST_F(EnvelopedEncoder, TransportsByOaepWhenAsked) {
    Transported recipient(rsa(), "1.2.840.113549.1.1.7");
    EXPECT_EQ(judged(rsa(), envelopFor(recipient.choice, content, aes256Gcm)), text(content));
}

TEST_F(EnvelopedEncoder, NamesTheRecipientByKeyIdentifierWhenAsked) {
    Transported recipient(rsa());
    Bytes keyId;
    for (DWORD i = 0; i < rsa().info->get().cExtension; ++i) {
        const CERT_EXTENSION& extension = rsa().info->get().rgExtension[i];
        if (std::string_view(extension.pszObjId) == "2.5.29.14") {
            const auto identifier = der::readOnly({extension.Value.pbData, extension.Value.cbData}).content;
            keyId.assign(identifier.begin(), identifier.end());
        }
    }
    ASSERT_FALSE(keyId.empty());
    recipient.info.RecipientId.dwIdChoice = capi::CERT_ID_KEY_IDENTIFIER;
    recipient.info.RecipientId.u.KeyId = {static_cast<DWORD>(keyId.size()), keyId.data()};
    const Enveloped made = envelopFor(recipient.choice, content, aes256Gcm);
    EXPECT_EQ(judged(rsa(), made), text(content));
}

TEST_F(EnvelopedEncoder, AgreesUponTheKeyOfGostRecipients) {
    for (const Recipient* const gost : {&gost256(), &gost512()}) {
        Agreed agreed(*gost, "1.2.643.7.1.1.7.2.1");
        const Enveloped made = envelopFor(agreed.choice, content, kuznyechikOmac);
        EXPECT_EQ(made.error, 0U);
        EXPECT_FALSE(made.message.empty());
    }
}

TEST_F(EnvelopedEncoder, RefusesRecipientsThatAreNotDescribedInFull) {
    const auto errorFor = [&](auto& recipient) { return envelopFor(recipient.choice, content, aes256Gcm).error; };
    Transported transported(rsa());
    transported.info.cbSize = 1;
    EXPECT_EQ(errorFor(transported), capi::ERROR_INVALID_PARAMETER);
    transported = Transported(rsa());
    transported.choice.u.pKeyTrans = &transported.info;
    transported.info.RecipientId.dwIdChoice = 3;
    EXPECT_EQ(errorFor(transported), capi::ERROR_INVALID_PARAMETER);
    transported.choice.u.pKeyTrans = nullptr;
    EXPECT_EQ(errorFor(transported), capi::ERROR_INVALID_PARAMETER);
    transported.choice.dwRecipientChoice = 3;
    EXPECT_EQ(errorFor(transported), capi::ERROR_INVALID_PARAMETER);
    Agreed unknown(gost256(), "1.2.3.4");
    EXPECT_EQ(envelopFor(unknown.choice, content, kuznyechikOmac).error, capi::NTE_BAD_ALGID);
    Agreed agreed(gost256(), "1.2.643.7.1.1.7.2.1");
    agreed.info.dwKeyChoice = capi::CMSG_KEY_AGREE_STATIC_KEY_CHOICE;
    EXPECT_EQ(envelopFor(agreed.choice, content, kuznyechikOmac).error, capi::ERROR_INVALID_PARAMETER);
    agreed.info.dwKeyChoice = capi::CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE;
    agreed.keys = nullptr;
    EXPECT_EQ(envelopFor(agreed.choice, content, kuznyechikOmac).error, capi::ERROR_INVALID_PARAMETER);
}

} // namespace
} // namespace klunortredi::test
