// Structures from a stranger: the first octet chooses the structure type, the rest is its DER. Built with libFuzzer,
// and replayed by a test.

#include "capi/constants.hpp"
#include "core/bytes.hpp"
#include "exports/export.hpp"
#include "require.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;
namespace api = klunortredi::csp::exports;

using Structure = std::vector<std::max_align_t>;

const char* number(DWORD type) {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(type)); // NOLINT: a number in a pointer
}

/// Every structure type of the service's table.
const std::array types{number(capi::X509_CERT),
                       number(capi::X509_CERT_TO_BE_SIGNED),
                       number(capi::X509_CERT_REQUEST_TO_BE_SIGNED),
                       number(capi::X509_EXTENSIONS),
                       number(capi::X509_NAME_VALUE),
                       number(capi::X509_NAME),
                       number(capi::X509_PUBLIC_KEY_INFO),
                       number(capi::X509_KEY_ATTRIBUTES),
                       number(capi::X509_ALTERNATE_NAME),
                       number(capi::X509_KEY_USAGE),
                       number(capi::X509_BASIC_CONSTRAINTS2),
                       number(capi::X509_CERT_POLICIES),
                       number(capi::PKCS_ATTRIBUTE),
                       number(capi::X509_UNICODE_NAME_VALUE),
                       number(capi::X509_OCTET_STRING),
                       number(capi::X509_INTEGER),
                       number(capi::X509_MULTI_BYTE_INTEGER),
                       number(capi::X509_CHOICE_OF_TIME),
                       number(capi::X509_SEQUENCE_OF_ANY),
                       number(capi::X509_ENHANCED_KEY_USAGE),
                       number(capi::TIMESTAMP_REQUEST),
                       number(capi::TIMESTAMP_RESPONSE),
                       number(capi::TIMESTAMP_INFO),
                       capi::szOID_ENROLLMENT_NAME_VALUE_PAIR,
                       capi::szOID_ENROLLMENT_CSP_PROVIDER};

bool decode(const char* type, ByteView der, Structure& out) {
    const auto length = static_cast<DWORD>(der.size());
    DWORD size = 0;
    if (api::CryptDecodeObject(capi::X509_ASN_ENCODING, type, der.data(), length, 0, nullptr, &size) == 0) {
        return false;
    }
    out.assign(size / sizeof(std::max_align_t) + 1, {});
    require(api::CryptDecodeObject(capi::X509_ASN_ENCODING, type, der.data(), length, 0, out.data(), &size) != 0,
            "what has a size decodes");
    return true;
}

/// False for what is readable and not to be written: a zero character inside a text.
bool encode(const char* type, const Structure& structure, Bytes& out) {
    DWORD size = 0;
    if (api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, structure.data(), nullptr, &size) == 0) {
        return false;
    }
    out.resize(size);
    require(api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, structure.data(), out.data(), &size) != 0,
            "what has a size encodes");
    out.resize(size);
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const char* const type = types.at(data[0] % types.size());
    Structure structure;
    Bytes first;
    Bytes second;
    if (!decode(type, {data + 1, size - 1}, structure) || !encode(type, structure, first)) {
        return 0;
    }
    require(decode(type, first, structure), "what was encoded decodes");
    require(encode(type, structure, second) && first == second, "encoding is stable");
    return 0;
}
