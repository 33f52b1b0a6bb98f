#include "crypto/wincrypt/tools_encode.hpp"

#include "struct_type.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/user_agent.hpp"
#include "orvik/plugin/version_registry.hpp"

#include <array>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

/// Who asks for a certificate, as MS-WCCE 2.2.2.7.4 numbers its clients.
constexpr unsigned int clientId = 5;

std::string encode(DWORD encodingType, DWORD type, const void* value) {
    return CryptEncodeObjectEx(encodingType, structType(type), value);
}

std::string encodeValue(DWORD valueType, const void* data, std::size_t size) {
    CERT_NAME_VALUE value{};
    value.dwValueType = valueType;
    // The structure serves both directions; the encoder only reads it.
    value.Value = {static_cast<DWORD>(size), static_cast<BYTE*>(const_cast<void*>(data))};
    return encode(capi::X509_AND_PKCS_7, capi::X509_NAME_VALUE, &value);
}

template <std::size_t count>
std::string encodeSequence(std::array<std::string, count> elements) {
    std::array<CRYPT_DER_BLOB, count> blobs{};
    for (std::size_t i = 0; i < count; ++i) {
        blobs[i] = {static_cast<DWORD>(elements[i].size()), reinterpret_cast<BYTE*>(elements[i].data())};
    }
    const CRYPT_SEQUENCE_OF_ANY sequence{static_cast<DWORD>(count), blobs.data()};
    return encode(capi::X509_AND_PKCS_7, capi::X509_SEQUENCE_OF_ANY, &sequence);
}

std::string encodeText(const std::string& utf8) {
    return encodeString(plugin::converter::utf8_to_utf16(utf8));
}

} // namespace
} // namespace internal

std::string encodeString(const std::wstring& text) {
    // The service counts wide text in characters.
    return internal::encodeValue(capi::CERT_RDN_UTF8_STRING, text.data(), text.size());
}

std::string encodeString(boost::string_view text) {
    return internal::encodeValue(capi::CERT_RDN_UTF8_STRING, text.data(), text.size());
}

std::string encodeOctetString(boost::string_view octets) {
    return internal::encodeValue(capi::CERT_RDN_OCTET_STRING, octets.data(), octets.size());
}

std::string encodeNamValuePair(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair) {
    return CryptEncodeObjectEx(capi::X509_AND_PKCS_7, capi::szOID_ENROLLMENT_NAME_VALUE_PAIR, &pair);
}

std::string encodeCertNameInfo(const CERT_NAME_INFO& name) {
    return internal::encode(capi::X509_AND_PKCS_7, capi::X509_NAME, &name);
}

std::string encodeCertKeyAttributesInfo(const CERT_KEY_ATTRIBUTES_INFO& attributes) {
    return internal::encode(capi::PKCS_7_ASN_ENCODING, capi::X509_KEY_ATTRIBUTES, &attributes);
}

std::string encodeKeyUsage(const CRYPT_BIT_BLOB& bits) {
    return internal::encode(capi::PKCS_7_ASN_ENCODING, capi::X509_KEY_USAGE, &bits);
}

std::string encodeEnhKeyUsage(const CTL_USAGE& usage) {
    return internal::encode(capi::X509_AND_PKCS_7, capi::X509_ENHANCED_KEY_USAGE, &usage);
}

std::string encodeAltNameInfo(const CERT_ALT_NAME_INFO& names) {
    return internal::encode(capi::X509_AND_PKCS_7, capi::X509_ALTERNATE_NAME, &names);
}

std::string encodeCertPoliciesInfo(const CERT_POLICIES_INFO& policies) {
    return internal::encode(capi::X509_ASN_ENCODING, capi::X509_CERT_POLICIES, &policies);
}

std::string encodeSubjectNameIdentifier(const CRYPTOAPI_BLOB& keyIdentifier) {
    return CryptEncodeObjectEx(capi::X509_AND_PKCS_7, capi::szOID_SUBJECT_KEY_IDENTIFIER, &keyIdentifier);
}

std::string encodeCspProvider(const CRYPT_CSP_PROVIDER& provider) {
    return CryptEncodeObjectEx(capi::X509_AND_PKCS_7, capi::szOID_ENROLLMENT_CSP_PROVIDER, &provider);
}

std::string encodeTime(const FILETIME& time) {
    return internal::encode(capi::X509_AND_PKCS_7, capi::X509_CHOICE_OF_TIME, &time);
}

std::string encodeInteger(const unsigned int& value) {
    return internal::encode(capi::X509_AND_PKCS_7, capi::X509_INTEGER, &value);
}

std::string encodeCertExtensions(CERT_EXTENSIONS* extensions) {
    return internal::encode(capi::PKCS_7_ASN_ENCODING, capi::X509_EXTENSIONS, extensions);
}

std::string encodePrivateKeyUsagePeriod(const CERT_PRIVATE_KEY_VALIDITY& period) {
    return internal::encodeSequence(std::array{encodeTime(period.NotBefore), encodeTime(period.NotAfter)});
}

std::string encodeOsVersion() {
    return internal::encodeText(VersionRegistry::os());
}

std::string encodeClientInfo() {
    const UserAgent agent;
    return internal::encodeSequence(std::array{encodeInteger(internal::clientId), internal::encodeText(agent.machine),
                                               internal::encodeText(agent.user), internal::encodeText(agent.process)});
}

std::string exportPublicKeyInfo(unsigned long hProv) {
    return CryptExportPublicKeyInfoEx(hProv, capi::AT_KEYEXCHANGE, capi::X509_AND_PKCS_7);
}

std::string exportHashInfoFromPubKey(const crypto::IProvider& provider, CERT_PUBLIC_KEY_INFO* info, ALG_ID algorithm) {
    Hash hash(provider, algorithm);
    hash.update(info->PublicKey.pbData, info->PublicKey.cbData);
    return hash.finalize();
}

std::string encodeRequestInfo(unsigned long hProv, CERT_REQUEST_INFO* info, CRYPT_ALGORITHM_IDENTIFIER* algorithm) {
    const auto sign = [&](BYTE* out, DWORD* size) {
        if (CryptSignAndEncodeCertificate(hProv, capi::AT_KEYEXCHANGE, capi::X509_AND_PKCS_7,
                                          structType(capi::X509_CERT_REQUEST_TO_BE_SIGNED), info, algorithm, nullptr,
                                          out, size) == 0) {
            raise(crypto::exception::SystemException(), {"tools", "encodeRequestInfo"});
        }
    };
    DWORD size = 0;
    sign(nullptr, &size);
    std::string request(size, '\0');
    sign(reinterpret_cast<BYTE*>(request.data()), &size);
    request.resize(size); // a signature may come out shorter than it was foretold
    return request;
}

} // namespace orvik::plugin::wincrypt::tools
