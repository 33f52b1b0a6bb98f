#include "crypto/wincrypt/certificate.hpp"

#include "ber_reader.hpp"
#include "decoded_structure.hpp"
#include "lenient.hpp"
#include "struct_type.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/asn.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/log.hpp"

#include <cstring>
#include <sstream>
#include <string>
#include <utility>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

constexpr const char* keyUsageOid = "2.5.29.15";
constexpr const char* privateKeyUsagePeriodOid = "2.5.29.16";
constexpr const char* subjectSignToolOid = "1.2.643.100.111";
constexpr const char* issuerSignToolOid = "1.2.643.100.112";

/// Octets of the context tag and the one-octet length in front of each time of a private-key usage period.
constexpr std::size_t timeHeader = 2;

constexpr unsigned char sequenceTag = 0x30;

/// Value of the certificate's extension; null when it is absent or empty.
const CRYPT_OBJID_BLOB* extension(CERT_INFO* info, const char* oid) {
    if (info == nullptr || info->rgExtension == nullptr) {
        return nullptr;
    }
    const auto* found = CertFindExtension(oid, info->cExtension, info->rgExtension);
    return found != nullptr && tools::check_blob(&found->Value) ? &found->Value : nullptr;
}

std::string decode(DWORD encodingType, DWORD type, const CRYPT_OBJID_BLOB& der) {
    return CryptDecodeObjectEx(encodingType, structType(type), der.pbData, der.cbData);
}

/// Octets of a sign tool's text as the service decodes it; empty when there is none.
std::string signTool(CERT_INFO* info, const char* oid) {
    const auto* der = extension(info, oid);
    if (der == nullptr) {
        return {};
    }
    const auto object = decode(capi::X509_AND_PKCS_7, capi::X509_ANY_STRING, *der);
    const auto* text = structure<CERT_NAME_VALUE>(object);
    if (text == nullptr || !tools::check_blob(&text->Value)) {
        return {};
    }
    return {reinterpret_cast<const char*>(text->Value.pbData), text->Value.cbData};
}

/// The texts of an issuer's sign tool, which is a sequence of UTF8String (order of the FSB No. 795): the tool, the
/// authority's product and the papers of both. Empty for octets that are not such a sequence.
std::string textsInSequence(const std::string& der) {
    constexpr std::size_t shortHead = 2;
    constexpr unsigned char longLength = 0x80;
    std::istringstream octets(der);
    BerReader reader(octets);
    std::string texts;
    try {
        const auto sequence = reader.enter(sequenceTag);
        while (reader.more(sequence)) {
            const auto value = reader.value(der.size());
            const auto length = static_cast<unsigned char>(value.at(1));
            const std::size_t head = length < longLength ? shortHead : shortHead + (length - longLength);
            texts += (texts.empty() ? "" : "; ") + value.substr(head);
        }
    } catch (const crypto::exception::SystemException&) {
        return {};
    }
    return texts;
}

boost::posix_time::ptime periodTime(const CRYPT_SEQUENCE_OF_ANY& period, DWORD index) {
    if (index >= period.cValue || period.rgValue[index].cbData <= timeHeader) {
        return {};
    }
    const auto& element = period.rgValue[index];
    const std::string time(reinterpret_cast<const char*>(element.pbData) + timeHeader, element.cbData - timeHeader);
    return asn::converter::utc_time_to_ptime(time, "%Y%m%d%H%M%S");
}

std::pair<boost::posix_time::ptime, boost::posix_time::ptime> privateKey_period(CERT_INFO* info, const char* oid) {
    const auto* der = extension(info, oid);
    if (der == nullptr) {
        return {};
    }
    const auto object = decode(capi::X509_ASN_ENCODING, capi::X509_SEQUENCE_OF_ANY, *der);
    const auto* period = structure<CRYPT_SEQUENCE_OF_ANY>(object);
    if (period == nullptr) {
        log::warning(std::string("wincrypt: extension ") + oid + " can't decode object");
        return {};
    }
    return {periodTime(*period, 0), periodTime(*period, 1)};
}

} // namespace
} // namespace internal

boost::optional<std::uint16_t> Certificate::keyUsage() const {
    const auto* der = internal::extension(info(), internal::keyUsageOid);
    if (der == nullptr) {
        return boost::none;
    }
    const auto object = internal::decode(capi::X509_ASN_ENCODING, capi::X509_KEY_USAGE, *der);
    const auto* bits = structure<CRYPT_BIT_BLOB>(object);
    if (bits == nullptr || !tools::check_blob(bits)) {
        return boost::none;
    }
    const unsigned high = bits->cbData >= 2 ? bits->pbData[1] : 0U;
    return static_cast<std::uint16_t>(bits->pbData[0] | high << 8U);
}

boost::optional<std::wstring> Certificate::subjectSignTool() const {
    const auto octets = internal::signTool(info(), internal::subjectSignToolOid);
    if (octets.empty()) {
        return boost::none;
    }
    std::wstring text(octets.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), octets.data(), text.size() * sizeof(wchar_t));
    return text;
}

boost::optional<std::wstring> Certificate::issuerSignTool() const {
    const auto octets = internal::signTool(info(), internal::issuerSignToolOid);
    if (octets.empty()) {
        return boost::none;
    }
    const auto decoded = [](const std::string& utf8) {
        return orEmpty([&utf8] { return boost::make_optional(plugin::converter::utf8_to_utf16(utf8)); });
    };
    if (auto whole = decoded(octets)) {
        return whole;
    }
    // From 128 octets on, the heads of a sequence and of its texts are not valid UTF-8.
    const auto texts = internal::textsInSequence(octets);
    return texts.empty() ? boost::optional<std::wstring>() : decoded(texts);
}

boost::posix_time::ptime Certificate::privateKeyNotBefore() const {
    return internal::privateKey_period(info(), internal::privateKeyUsagePeriodOid).first;
}

boost::posix_time::ptime Certificate::privateKeyNotAfter() const {
    return internal::privateKey_period(info(), internal::privateKeyUsagePeriodOid).second;
}

} // namespace orvik::plugin::wincrypt
