#include "embedded_fixture.hpp"

#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <cstdlib>

namespace wincrypt_keys {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::IProvider;
using orvik::plugin::wincrypt::Certificate;
using orvik::plugin::wincrypt::HCRYPTKEY;
using orvik::plugin::wincrypt::HCRYPTPROV;

const KeyKind gost256 = {"Gost256",
                         80,
                         L"Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider",
                         "1.2.643.7.1.1.1.1",
                         "1.2.643.7.1.1.2.2",
                         "-md_gost12_256",
                         false,
                         true};
const KeyKind gost512 = {"Gost512",
                         81,
                         L"Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider",
                         "1.2.643.7.1.1.1.2",
                         "1.2.643.7.1.1.2.3",
                         "-md_gost12_512",
                         false,
                         true};
const KeyKind rsa = {"Rsa",
                     24,
                     L"Klunortredi RSA and AES Cryptographic Service Provider",
                     "1.2.840.113549.1.1.1",
                     "2.16.840.1.101.3.4.2.1",
                     "-sha256",
                     true,
                     false};

void PrintTo(const KeyKind& kind, std::ostream* out) {
    *out << kind.label;
}

EmbeddedFixture::EmbeddedFixture() {
    ::setenv("KLUNORTREDI_HOME", (folder_ / "home").c_str(), 1); // before any thread
    AuthProvider::setDialog([this](const auto&, unsigned) {
        ++dialogues_;
        return std::string(pin);
    });
    orvik::plugin::log::setLevel(orvik::plugin::log::Severity::error);
}

EmbeddedFixture::~EmbeddedFixture() {
    AuthProvider::setDialog({});
}

std::string EmbeddedFixture::makeContainer(const KeyKind& kind, const std::wstring& name, DWORD keySpec) {
    unsigned error = 0;
    const HCRYPTPROV context(name, kind.provider, static_cast<IProvider::Type>(kind.type), capi::CRYPT_NEWKEYSET,
                             &error);
    EXPECT_EQ(error, 0U);
    EXPECT_NE(orvik::plugin::wincrypt::CryptSetProvParam(context.get(), capi::PP_KEYEXCHANGE_PIN,
                                                         reinterpret_cast<const BYTE*>(pin), capi::PIN_SET_NEW),
              0);
    HCRYPTKEY key;
    EXPECT_NE(orvik::plugin::wincrypt::CryptGenKey(context.get(), keySpec, 0, key.put()), 0);
    const auto info =
        orvik::plugin::wincrypt::CryptExportPublicKeyInfoEx(context.get(), keySpec, capi::X509_AND_PKCS_7);
    // Structure types are small numbers in pointers.
    const auto* const type = reinterpret_cast<const char*>(std::uintptr_t{capi::X509_PUBLIC_KEY_INFO});
    return orvik::plugin::wincrypt::CryptEncodeObjectEx(capi::X509_AND_PKCS_7, type, info.data());
}

std::string EmbeddedFixture::issue(const std::string& publicKey) const {
    if (!folder_.has("ca.pem")) {
        openssl_.makeAuthority("ec");
        openssl_.must({"req", "-new", "-key", "ca.key", "-subj", "/CN=Holder", "-out", "any.csr"});
    }
    static_cast<void>(folder_.write("public.der", publicKey));
    openssl_.must({"pkey", "-pubin", "-inform", "DER", "-in", "public.der", "-pubout", "-out", "public.pem"});
    openssl_.must({"x509",
                   "-req",
                   "-in",
                   "any.csr",
                   "-force_pubkey",
                   "public.pem",
                   "-CA",
                   "ca.pem",
                   "-CAkey",
                   "ca.key",
                   "-CAcreateserial",
                   "-days",
                   "30",
                   "-extfile",
                   "openssl.cnf",
                   "-extensions",
                   "signer_extensions",
                   "-outform",
                   "DER",
                   "-out",
                   "certificate.der"});
    return folder_.read("certificate.der");
}

boost::shared_ptr<Certificate> EmbeddedFixture::signer(const KeyKind& kind, const std::wstring& name,
                                                       DWORD keySpec) const {
    auto certificate = boost::make_shared<Certificate>(issue(makeContainer(kind, name, keySpec)));
    EXPECT_TRUE(certificate->link(provider(kind), name));
    return certificate;
}

bool EmbeddedFixture::opensslAccepts(const KeyKind& kind, const Certificate& certificate, const std::string& data,
                                     std::string signature) const {
    if (kind.reversed) {
        std::reverse(signature.begin(), signature.end());
    }
    static_cast<void>(folder_.write("signer.der", certificate.raw()));
    static_cast<void>(folder_.write("data", data));
    static_cast<void>(folder_.write("signature", signature));
    openssl_.must({"x509", "-inform", "DER", "-in", "signer.der", "-pubkey", "-noout", "-out", "signer.pem"});
    return openssl_.run({"dgst", kind.digest, "-verify", "signer.pem", "-signature", "signature", "data"}).exit == 0;
}

} // namespace wincrypt_keys
