// Encoding of objects: the few structures that are a tag, a length and octets. Everything else is for the test's own
// answers and fails with ERROR_FILE_NOT_FOUND, as a service does for a structure type that it does not know.

#include "model.hpp"

#include "capi/constants.hpp"

#include <openssl/evp.h>

#include <optional>

namespace service_double {

namespace {

constexpr char tagInteger = 0x02;
constexpr char tagBitString = 0x03;
constexpr char tagOctetString = 0x04;
constexpr char tagUtf8String = 0x0C;
constexpr char tagSequence = 0x30;
constexpr std::size_t shortForm = 0x7F;

struct Element {
    char tag;
    std::string whole; ///< with tag and length
    std::string value;
};

/// Short lengths and the one-octet long form are enough for tests.
std::string encode(char tag, const std::string& value) {
    std::string result(1, tag);
    if (value.size() > shortForm) {
        result += '\x81';
    }
    result += static_cast<char>(value.size());
    return result + value;
}

std::optional<Element> decodeFirst(const std::string& encoded) {
    if (encoded.size() < 2) {
        return std::nullopt;
    }
    const bool longForm = encoded[1] == '\x81';
    const std::size_t head = longForm ? 3 : 2;
    if (encoded.size() < head) {
        return std::nullopt;
    }
    const std::size_t length = static_cast<unsigned char>(encoded[head - 1]);
    if ((!longForm && length > shortForm) || encoded.size() < head + length) {
        return std::nullopt;
    }
    return Element{encoded[0], encoded.substr(0, head + length), encoded.substr(head, length)};
}

std::string octets(const CRYPTOAPI_BLOB& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

std::string encodeInteger(unsigned value) {
    constexpr unsigned octetBits = 8;
    std::string digits;
    do {
        digits.insert(digits.begin(), static_cast<char>(value));
        value >>= octetBits;
    } while (value != 0);
    if (digits.front() < 0) {
        digits.insert(digits.begin(), '\0');
    }
    return encode(tagInteger, digits);
}

std::string encodeText(const CERT_NAME_VALUE& text) {
    return encode(text.dwValueType == capi::CERT_RDN_OCTET_STRING ? tagOctetString : tagUtf8String, octets(text.Value));
}

std::string encodeSequence(const CRYPT_SEQUENCE_OF_ANY& sequence) {
    std::string content;
    for (DWORD i = 0; i < sequence.cValue; ++i) {
        content += octets(sequence.rgValue[i]);
    }
    return encode(tagSequence, content);
}

Flat decodeBits(const Element& element) {
    Flat flat(sizeof(CRYPT_BIT_BLOB));
    flat.set(offsetof(CRYPT_BIT_BLOB, cUnusedBits), static_cast<DWORD>(element.value.at(0)));
    flat.blob(0, element.value.substr(1));
    return flat;
}

Flat decodeText(const Element& element) {
    Flat flat(sizeof(CERT_NAME_VALUE));
    flat.set(offsetof(CERT_NAME_VALUE, dwValueType),
             element.tag == tagOctetString ? capi::CERT_RDN_OCTET_STRING : capi::CERT_RDN_UTF8_STRING);
    flat.blob(offsetof(CERT_NAME_VALUE, Value), element.value);
    return flat;
}

Flat decodeSequence(const Element& element) {
    std::vector<std::string> elements;
    std::string rest = element.value;
    while (const auto next = decodeFirst(rest)) {
        elements.push_back(next->whole);
        rest.erase(0, next->whole.size());
    }
    Flat flat(sizeof(CRYPT_SEQUENCE_OF_ANY));
    flat.set(offsetof(CRYPT_SEQUENCE_OF_ANY, cValue), static_cast<DWORD>(elements.size()));
    const auto table = flat.appendStructure(elements.size() * sizeof(CRYPT_DER_BLOB));
    flat.point(offsetof(CRYPT_SEQUENCE_OF_ANY, rgValue), table);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        flat.blob(table + i * sizeof(CRYPT_DER_BLOB), elements[i]);
    }
    return flat;
}

std::optional<Flat> decodeAs(unsigned long type, const Element& element) {
    switch (type) {
    case capi::X509_KEY_USAGE:
        return element.tag == tagBitString && !element.value.empty() ? std::optional(decodeBits(element))
                                                                     : std::nullopt;
    case capi::X509_ANY_STRING:
        return decodeText(element);
    case capi::X509_SEQUENCE_OF_ANY:
        return element.tag == tagSequence ? std::optional(decodeSequence(element)) : std::nullopt;
    default:
        return std::nullopt;
    }
}

} // namespace

BOOL Defaults::CryptEncodeObject(DWORD /*encoding*/, const char* type, const void* value, BYTE* buffer, DWORD* size) {
    switch (toHandle(type)) {
    case capi::X509_INTEGER:
        return give(encodeInteger(*static_cast<const unsigned*>(value)), buffer, size);
    case capi::X509_NAME_VALUE:
        return give(encodeText(*static_cast<const CERT_NAME_VALUE*>(value)), buffer, size);
    case capi::X509_SEQUENCE_OF_ANY:
        return give(encodeSequence(*static_cast<const CRYPT_SEQUENCE_OF_ANY*>(value)), buffer, size);
    default:
        return fail(capi::ERROR_FILE_NOT_FOUND);
    }
}

BOOL Defaults::CryptDecodeObject(DWORD /*encoding*/, const char* type, const BYTE* encoded, DWORD encodedSize,
                                 DWORD /*flags*/, void* buffer, DWORD* size) {
    const auto element = decodeFirst({reinterpret_cast<const char*>(encoded), encodedSize});
    if (!element) {
        return fail(capi::CRYPT_E_ASN1_EOD);
    }
    const auto flat = decodeAs(toHandle(type), *element);
    return flat ? giveFlat(*flat, buffer, size) : static_cast<BOOL>(fail(capi::ERROR_FILE_NOT_FOUND));
}

/// An empty SEQUENCE: what was to be signed is for the test's own answer to look at.
BOOL Defaults::CryptSignAndEncodeCertificate(unsigned long /*context*/, DWORD /*keySpec*/, DWORD /*encoding*/,
                                             const char* /*type*/, const void* /*value*/,
                                             CRYPT_ALGORITHM_IDENTIFIER* /*algorithm*/, const void* /*hashInfo*/,
                                             BYTE* buffer, DWORD* size) {
    return give(encode(tagSequence, {}), buffer, size);
}

/// Base64 without line ends, whatever the flags; the size counts the zero when it is asked for only.
BOOL Defaults::CryptBinaryToStringW(const BYTE* data, DWORD dataSize, DWORD /*flags*/, char* buffer, DWORD* size) {
    constexpr std::size_t group = 3;
    constexpr std::size_t digits = 4;
    std::string text((dataSize + group - 1) / group * digits, '\0');
    std::vector<unsigned char> encoded(text.size() + 1);
    EVP_EncodeBlock(encoded.data(), data, static_cast<int>(dataSize));
    text.assign(reinterpret_cast<const char*>(encoded.data()));
    const BOOL done = give(text + '\0', buffer, size);
    if (done && buffer != nullptr) {
        --*size;
    }
    return done;
}

PCCRYPT_OID_INFO Defaults::CryptFindOIDInfo(DWORD keyType, const void* key, DWORD /*group*/) {
    const Lock lock(stateMutex());
    if (keyType != capi::CRYPT_OID_INFO_OID_KEY) {
        return nullptr;
    }
    const auto& oids = service().oids;
    const auto found = oids.find(static_cast<const char*>(key));
    if (found == oids.end()) {
        return nullptr;
    }
    auto& info = state().oidInfos[found->first];
    info.cbSize = sizeof info;
    info.pszOID = found->first.c_str();
    info.u.Algid = found->second.algorithm;
    info.pwszCNGAlgid = found->second.cngName.empty() ? nullptr : found->second.cngName.c_str();
    return &info;
}

} // namespace service_double
