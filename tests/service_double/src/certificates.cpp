// Certificate contexts.

#include "model.hpp"

#include "capi/constants.hpp"

#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>

namespace service_double {

namespace {

using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;

template <class T>
std::string der(const T* object, int (*encode)(const T*, unsigned char**)) {
    std::string octets(static_cast<std::size_t>(encode(object, nullptr)), '\0');
    auto* out = reinterpret_cast<unsigned char*>(octets.data());
    encode(object, &out);
    return octets;
}

std::string octets(const ASN1_STRING* text) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
            static_cast<std::size_t>(ASN1_STRING_length(text))};
}

std::string oidText(const ASN1_OBJECT* object) {
    std::array<char, 128> text{};
    OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    return text.data();
}

std::string parametersOf(const X509_ALGOR* algorithm) {
    const ASN1_OBJECT* object = nullptr;
    int type = 0;
    const void* value = nullptr;
    X509_ALGOR_get0(&object, &type, &value, algorithm);
    if (type == V_ASN1_UNDEF) {
        return {};
    }
    ASN1_TYPE parameters{};
    parameters.type = type;
    parameters.value.ptr = static_cast<char*>(const_cast<void*>(value));
    return der<ASN1_TYPE>(&parameters, i2d_ASN1_TYPE);
}

FILETIME fileTime(const ASN1_TIME* time) {
    constexpr std::uint64_t epoch = 11644473600;
    constexpr std::uint64_t ticks = 10000000;
    std::tm parts{};
    ASN1_TIME_to_tm(time, &parts);
    const std::uint64_t value = (static_cast<std::uint64_t>(timegm(&parts)) + epoch) * ticks;
    constexpr unsigned halfBits = 32;
    return {static_cast<DWORD>(value), static_cast<DWORD>(value >> halfBits)};
}

void fillAlgorithm(Flat& flat, std::size_t offset, const X509_ALGOR* algorithm) {
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    flat.text(offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, pszObjId), oidText(object));
    flat.blob(offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, Parameters), parametersOf(algorithm));
}

void fillExtensions(Flat& flat, const X509* certificate) {
    const int count = X509_get_ext_count(certificate);
    if (count == 0) {
        return;
    }
    flat.set(offsetof(CERT_INFO, cExtension), static_cast<DWORD>(count));
    const std::size_t table = flat.appendStructure(static_cast<std::size_t>(count) * sizeof(CERT_EXTENSION));
    flat.point(offsetof(CERT_INFO, rgExtension), table);
    for (int i = 0; i < count; ++i) {
        auto* extension = X509_get_ext(certificate, i);
        const std::size_t row = table + static_cast<std::size_t>(i) * sizeof(CERT_EXTENSION);
        flat.text(row + offsetof(CERT_EXTENSION, pszObjId), oidText(X509_EXTENSION_get_object(extension)));
        flat.set(row + offsetof(CERT_EXTENSION, fCritical), BOOL{X509_EXTENSION_get_critical(extension)});
        flat.blob(row + offsetof(CERT_EXTENSION, Value), octets(X509_EXTENSION_get_data(extension)));
    }
}

Flat flatInfo(X509* certificate) {
    Flat flat(sizeof(CERT_INFO));
    flat.set(offsetof(CERT_INFO, dwVersion), static_cast<DWORD>(X509_get_version(certificate)));
    auto serial = octets(X509_get0_serialNumber(certificate));
    std::reverse(serial.begin(), serial.end());
    flat.blob(offsetof(CERT_INFO, SerialNumber), serial);
    fillAlgorithm(flat, offsetof(CERT_INFO, SignatureAlgorithm), X509_get0_tbs_sigalg(certificate));
    flat.blob(offsetof(CERT_INFO, Issuer), der<X509_NAME>(X509_get_issuer_name(certificate), i2d_X509_NAME));
    flat.blob(offsetof(CERT_INFO, Subject), der<X509_NAME>(X509_get_subject_name(certificate), i2d_X509_NAME));
    flat.set(offsetof(CERT_INFO, NotBefore), fileTime(X509_get0_notBefore(certificate)));
    flat.set(offsetof(CERT_INFO, NotAfter), fileTime(X509_get0_notAfter(certificate)));
    X509_ALGOR* keyAlgorithm = nullptr;
    X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &keyAlgorithm, X509_get_X509_PUBKEY(certificate));
    constexpr std::size_t spki = offsetof(CERT_INFO, SubjectPublicKeyInfo);
    fillAlgorithm(flat, spki + offsetof(CERT_PUBLIC_KEY_INFO, Algorithm), keyAlgorithm);
    flat.blob(spki + offsetof(CERT_PUBLIC_KEY_INFO, PublicKey), octets(X509_get0_pubkey_bitstr(certificate)));
    fillExtensions(flat, certificate);
    return flat;
}

} // namespace

CertificatePointer parseCertificate(const std::string& encoded) {
    const auto* in = reinterpret_cast<const unsigned char*>(encoded.data());
    const X509Pointer certificate(d2i_X509(nullptr, &in, static_cast<long>(encoded.size())), X509_free);
    if (!certificate) {
        return nullptr;
    }
    auto object = std::make_shared<CertificateObject>();
    object->der = encoded;
    const auto info = flatInfo(certificate.get());
    object->block.resize(info.size());
    info.placedAt(object->block.data()).copy(object->block.data(), info.size());
    object->context.dwCertEncodingType = capi::X509_AND_PKCS_7;
    object->context.pbCertEncoded = reinterpret_cast<BYTE*>(object->der.data());
    object->context.cbCertEncoded = static_cast<DWORD>(object->der.size());
    object->context.pCertInfo = reinterpret_cast<CERT_INFO*>(object->block.data());
    object->number = state().certificates.size() + 1;
    state().certificates.emplace(&object->context, object);
    return object;
}

PCCERT_CONTEXT hold(const CertificatePointer& certificate) {
    ++certificate->references;
    return &certificate->context;
}

CertificatePointer findCertificate(PCCERT_CONTEXT context) {
    const auto found = state().certificates.find(context);
    return found == state().certificates.end() ? nullptr : found->second;
}

BOOL letGo(PCCERT_CONTEXT context, const char* function) {
    const auto certificate = findCertificate(context);
    if (!certificate || certificate->references == 0) {
        return misuse(std::string(function) + ": a certificate that is not held", capi::ERROR_INVALID_PARAMETER);
    }
    --certificate->references;
    return 1;
}

PCCERT_CONTEXT Defaults::CertCreateCertificateContext(DWORD /*encoding*/, const BYTE* encoded, DWORD size) {
    const Lock lock(stateMutex());
    const auto certificate = parseCertificate({reinterpret_cast<const char*>(encoded), size});
    return certificate ? hold(certificate) : static_cast<PCCERT_CONTEXT>(fail(capi::CRYPT_E_ASN1_BADTAG));
}

PCCERT_CONTEXT Defaults::CertDuplicateCertificateContext(PCCERT_CONTEXT context) {
    const Lock lock(stateMutex());
    const auto certificate = findCertificate(context);
    return certificate ? hold(certificate) : static_cast<PCCERT_CONTEXT>(fail(capi::ERROR_INVALID_PARAMETER));
}

BOOL Defaults::CertFreeCertificateContext(PCCERT_CONTEXT context) {
    const Lock lock(stateMutex());
    return context == nullptr ? 1 : letGo(context, "CertFreeCertificateContext");
}

CERT_EXTENSION* Defaults::CertFindExtension(const char* oid, DWORD count, CERT_EXTENSION* extensions) {
    for (DWORD i = 0; i < count; ++i) {
        if (std::strcmp(extensions[i].pszObjId, oid) == 0) {
            return &extensions[i];
        }
    }
    return nullptr;
}

/// Dotted OIDs and values, "2.5.4.3=Name; 2.5.4.6=RU"; values that are no text as "#" and their DER in hexadecimal.
DWORD Defaults::CertNameToStrW(DWORD /*encoding*/, CERT_NAME_BLOB* blob, DWORD /*type*/, wchar_t* buffer, DWORD size) {
    const auto* in = static_cast<const unsigned char*>(blob->pbData);
    const std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)> name(
        d2i_X509_NAME(nullptr, &in, static_cast<long>(blob->cbData)), X509_NAME_free);
    std::wstring text;
    for (int i = 0; name && i < X509_NAME_entry_count(name.get()); ++i) {
        const auto* entry = X509_NAME_get_entry(name.get(), i);
        const auto* value = X509_NAME_ENTRY_get_data(entry);
        text += (i == 0 ? L"" : L"; ") + fromUtf8(oidText(X509_NAME_ENTRY_get_object(entry))) + L"=";
        unsigned char* utf8 = nullptr;
        const int length = ASN1_STRING_type(value) == V_ASN1_NUMERICSTRING ? -1 : ASN1_STRING_to_UTF8(&utf8, value);
        if (length >= 0) {
            text += fromUtf8({reinterpret_cast<char*>(utf8), static_cast<std::size_t>(length)});
            OPENSSL_free(utf8);
            continue;
        }
        text += L"#";
        for (const char octet :
             std::string{static_cast<char>(ASN1_STRING_type(value)), static_cast<char>(ASN1_STRING_length(value))} +
                 octets(value)) {
            constexpr std::wstring_view digits = L"0123456789abcdef";
            const auto bits = static_cast<unsigned char>(octet);
            text += digits[bits / digits.size()];
            text += digits[bits % digits.size()];
        }
    }
    const auto needed = static_cast<DWORD>(text.size() + 1);
    if (buffer == nullptr || size == 0) {
        return needed;
    }
    const std::size_t copied = std::min<std::size_t>(text.size(), size - 1);
    text.copy(buffer, copied);
    buffer[copied] = L'\0';
    return static_cast<DWORD>(copied + 1);
}

} // namespace service_double
