#include "signing.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/signature.hpp"
#include "exports/export.hpp"
#include "keys/provider_context.hpp"
#include "x509/cert_info.hpp"

#include <openssl/rsa.h>

#include <array>
#include <cstdlib>
#include <deque>

namespace klunortredi::test {

namespace {

namespace api = csp::exports;

CRYPTOAPI_BLOB blob(Bytes& octets) {
    return {static_cast<DWORD>(octets.size()), octets.data()};
}

/// The structures of a call, with all that they point to.
struct Description {
    Description(const std::vector<Signer>& signers, const SignOptions& options) {
        for (const Signer& signer : signers) {
            const csp::CertInfo& certificate = certificates.emplace_back(signer.certificate);
            encoded.push_back(signer.certificate);
            texts.push_back(signer.digest);
            CMSG_SIGNER_ENCODE_INFO& info = infos.emplace_back();
            info.cbSize = sizeof info;
            info.pCertInfo = const_cast<CERT_INFO*>(&certificate.get());
            info.hCryptProv = signer.provider;
            info.dwKeySpec = signer.keySpec;
            info.HashAlgorithm.pszObjId = texts.back().data();
            attributes(options.attributes, info.cAuthAttr, info.rgAuthAttr);
            attributes(options.unsignedAttributes, info.cUnauthAttr, info.rgUnauthAttr);
        }
        for (Bytes& certificate : encoded) {
            certificateBlobs.push_back(blob(certificate));
        }
        crls = options.crls;
        for (Bytes& crl : crls) {
            crlBlobs.push_back(blob(crl));
        }
        message = {sizeof message, static_cast<DWORD>(infos.size()), infos.data(), 0, nullptr, 0, nullptr};
        if (options.withCertificates) {
            message.cCertEncoded = static_cast<DWORD>(certificateBlobs.size());
            message.rgCertEncoded = certificateBlobs.data();
        }
        message.cCrlEncoded = static_cast<DWORD>(crlBlobs.size());
        message.rgCrlEncoded = crlBlobs.data();
        if (options.spoil) {
            options.spoil(message, infos.front());
        }
    }

    void attributes(const std::vector<SignedAttributeValue>& values, DWORD& count, CRYPT_ATTRIBUTE*& first) {
        std::vector<CRYPT_ATTRIBUTE>& list = attributeLists.emplace_back();
        for (const SignedAttributeValue& value : values) {
            Bytes& octets = attributeValues.emplace_back(value.value);
            CRYPT_ATTR_BLOB& valueBlob = attributeBlobs.emplace_back(blob(octets));
            list.push_back({texts.emplace_back(value.oid).data(), 1, &valueBlob});
        }
        count = static_cast<DWORD>(list.size());
        first = list.data();
    }

    std::deque<csp::CertInfo> certificates;
    std::deque<std::string> texts;
    std::deque<Bytes> encoded;
    std::deque<Bytes> attributeValues;
    std::deque<CRYPT_ATTR_BLOB> attributeBlobs;
    std::deque<std::vector<CRYPT_ATTRIBUTE>> attributeLists;
    std::vector<CMSG_SIGNER_ENCODE_INFO> infos;
    std::vector<CRYPTOAPI_BLOB> certificateBlobs;
    std::vector<Bytes> crls;
    std::vector<CRYPTOAPI_BLOB> crlBlobs;
    CMSG_SIGNED_ENCODE_INFO message{};
};

struct Kind {
    DWORD provider;
    std::string_view digest;
};

constexpr std::array kinds{
    Kind{capi::PROV_GOST_2012_256, "1.2.643.7.1.1.2.2"},
    Kind{capi::PROV_GOST_2012_512, "1.2.643.7.1.1.2.3"},
    Kind{capi::PROV_GOST_2001_DH, "1.2.643.2.2.9"},
    Kind{capi::PROV_RSA_AES, "2.16.840.1.101.3.4.2.1"},
};

void addExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

/// A certificate of that key, signed by an RSA authority that is made for the occasion.
Bytes issueCertificate(const Bytes& publicKeyInfo, long serial) {
    const csp::ossl::Pkey key = csp::publicKeyFromInfo(publicKeyInfo);
    static const csp::ossl::Pkey authority(EVP_RSA_gen(2048)); // one for the process: making it takes long
    const csp::ossl::X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -86400);
    static long lifetime = 86400; // differs, so that no two certificates are the same
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), ++lifetime);
    const std::string name = "Signer " + std::to_string(serial);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_NAME_add_entry_by_txt(X509_get_issuer_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Authority"), -1, -1, 0);
    X509_set_pubkey(certificate.get(), key.get());
    addExtension(certificate.get(), NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), NID_key_usage, "critical,digitalSignature");
    if (X509_sign(certificate.get(), authority.get(), EVP_sha256()) == 0) {
        throw std::runtime_error("no certificate");
    }
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate.get(), &der);
    Bytes encoded(der, der + size);
    OPENSSL_free(der);
    return encoded;
}

} // namespace

void useOwnHome() {
    static const TempFolder* const home = [] {
        static const TempFolder folder;
        setenv("KLUNORTREDI_HOME", folder.path().c_str(), 1); // NOLINT(concurrency-mt-unsafe): before any thread
        return &folder;
    }();
    static_cast<void>(home);
}

namespace {

Signer makeSigner(KeyKind kind, std::string_view pin) {
    useOwnHome();
    static long serial = 127; // so that some serial numbers have a leading zero octet
    ++serial;
    const Kind& row = kinds.at(static_cast<std::size_t>(kind));
    const std::wstring container = L"signer " + std::to_wstring(serial);
    Signer signer;
    signer.digest = row.digest;
    signer.provider = csp::acquireContext(container, {}, row.provider, capi::CRYPT_NEWKEYSET);
    const auto context = csp::providerContext(signer.provider);
    if (!pin.empty()) {
        context->setNewPin(pin);
    }
    context->generateKey({signer.keySpec, 0, false});
    signer.certificate = issueCertificate(context->publicKeyInfo(signer.keySpec), serial);
    if (!pin.empty()) {
        csp::releaseContext(signer.provider);
        signer.provider = csp::acquireContext(container, {}, row.provider, 0);
    }
    return signer;
}

} // namespace

Signer makeSigner(KeyKind kind) {
    return makeSigner(kind, {});
}

Signer makeLockedSigner(KeyKind kind) {
    return makeSigner(kind, "a PIN");
}

Bytes certificateFor(const Signer& signer, long serial) {
    return issueCertificate(csp::providerContext(signer.provider)->publicKeyInfo(signer.keySpec), serial);
}

long serialOf(const Bytes& certificate) {
    const unsigned char* next = certificate.data();
    const csp::ossl::X509Ptr decoded(d2i_X509(nullptr, &next, static_cast<long>(certificate.size())));
    return ASN1_INTEGER_get(X509_get0_serialNumber(decoded.get()));
}

std::vector<SignedAttributeValue> someAttributes() {
    return {{"1.2.840.113549.1.9.5", csp::der::element(csp::der::tag::UtcTime, bytes("261120120000Z"))},
            {"1.2.643.2.1.2.3.4", csp::der::utf8String("a private attribute")}};
}

Signed trySign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options) {
    Collected collected;
    return trySign(signers, content, options, collected);
}

Signed trySign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options, Collected& collected) {
    Signed result;
    CMSG_STREAM_INFO stream = collected.info(options.contentSize);
    Msg msg(nullptr);
    {
        const Description description(signers, options); // gone before content comes: the service copies
        msg = Msg(api::CryptMsgOpenToEncode(
            capi::X509_AND_PKCS_7, options.detached ? capi::CMSG_DETACHED_FLAG : 0, capi::CMSG_SIGNED,
            &description.message, const_cast<char*>(options.contentType), options.streamed ? &stream : nullptr));
    }
    if (msg.handle() == nullptr) {
        result.error = api::GetLastError();
        return result;
    }
    result.error = msg.feed(content, options.chunk);
    result.message = options.streamed || result.error != 0 ? collected.octets : msg.param(capi::CMSG_CONTENT_PARAM);
    result.finalCalls = collected.finalCalls;
    return result;
}

bool signInto(const Signer& signer, CMSG_STREAM_INFO stream, bool detached,
              const std::function<bool(const Msg&)>& feed) {
    const Description description({signer}, {});
    const Msg msg(api::CryptMsgOpenToEncode(capi::X509_AND_PKCS_7, detached ? capi::CMSG_DETACHED_FLAG : 0,
                                            capi::CMSG_SIGNED, &description.message, nullptr, &stream));
    return msg.handle() != nullptr && feed(msg);
}

Bytes sign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options) {
    Signed result = trySign(signers, content, options);
    if (result.error != 0) {
        throw csp::ApiError(result.error);
    }
    return result.message;
}

} // namespace klunortredi::test
