#include "csr_parts.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/asn.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <array>

namespace orvik::plugin::wincrypt::csr {

namespace {

constexpr const char* keyUsageOid = "2.5.29.15";
constexpr const char* certificatePoliciesOid = "2.5.29.32";
constexpr const char* enhancedKeyUsageOid = "2.5.29.37";
constexpr const char* subjectAltNameOid = "2.5.29.17";
constexpr const char* subjectSignToolOid = "1.2.643.100.111";
constexpr const char* identificationKindOid = "1.2.643.100.114";
constexpr const char* privateKeyUsagePeriodOid = "2.5.29.16";
constexpr const char* userPrincipalNameOid = "1.3.6.1.4.1.311.20.2.3";

// The CryptoAPI's structures have no const: the encoder only reads what they point to.

char* text(const std::string& string) {
    return const_cast<char*>(string.c_str());
}

CRYPTOAPI_BLOB blob(std::string& octets) {
    return {static_cast<DWORD>(octets.size()), reinterpret_cast<BYTE*>(octets.data())};
}

std::string keyUsage(std::uint16_t usage) {
    std::array<BYTE, 2> octets{static_cast<BYTE>(usage & 0xFFU), static_cast<BYTE>(usage >> 8U)};
    const DWORD size = octets[1] == 0 ? 1 : 2;
    DWORD unused = 0; // DER leaves the zero bits at the end of a list of named bits out
    while (unused < 7 && (unsigned{octets[size - 1]} >> unused & 1U) == 0) {
        ++unused;
    }
    return tools::encodeKeyUsage({size, octets.data(), unused});
}

std::string certificatePolicies(const std::vector<std::string>& oids) {
    log::debug("wincrypt: certificate request: try encode certificate policies to asn");
    std::vector<CERT_POLICY_INFO> policies;
    policies.reserve(oids.size());
    for (const auto& oid : oids) {
        policies.push_back({text(oid), 0, nullptr});
    }
    return tools::encodeCertPoliciesInfo({static_cast<DWORD>(policies.size()), policies.data()});
}

std::string enhancedKeyUsage(const std::vector<std::string>& oids) {
    std::vector<char*> usages;
    usages.reserve(oids.size());
    for (const auto& oid : oids) {
        usages.push_back(text(oid));
    }
    return tools::encodeEnhKeyUsage({static_cast<DWORD>(usages.size()), usages.data()});
}

std::string subjectAltName(const crypto::CsrCreatorParams& params) {
    std::vector<CERT_ALT_NAME_ENTRY> entries;
    std::string principal = asn::utf8String(params.userPrincipalName);
    CERT_OTHER_NAME other{const_cast<char*>(userPrincipalNameOid), blob(principal)};
    if (!params.userPrincipalName.empty()) {
        auto& entry = entries.emplace_back();
        entry.dwAltNameChoice = capi::CERT_ALT_NAME_OTHER_NAME;
        entry.u.pOtherName = &other;
    }
    std::vector<std::wstring> wide;
    wide.reserve(params.dnsNames.size() + params.emailNames.size());
    for (const auto& name : params.dnsNames) {
        auto& entry = entries.emplace_back();
        entry.dwAltNameChoice = capi::CERT_ALT_NAME_DNS_NAME;
        entry.u.pwszDNSName = wide.emplace_back(plugin::converter::utf8_to_utf16(name)).data();
    }
    for (const auto& name : params.emailNames) {
        auto& entry = entries.emplace_back();
        entry.dwAltNameChoice = capi::CERT_ALT_NAME_RFC822_NAME;
        entry.u.pwszRfc822Name = wide.emplace_back(plugin::converter::utf8_to_utf16(name)).data();
    }
    return tools::encodeAltNameInfo({static_cast<DWORD>(entries.size()), entries.data()});
}

FILETIME filetime(const boost::posix_time::ptime& time) {
    const auto count = static_cast<std::uint64_t>(converter::to_filetime(time));
    return {static_cast<DWORD>(count & 0xFFFFFFFFU), static_cast<DWORD>(count >> 32U)};
}

std::string privateKeyUsagePeriod(unsigned days) {
    log::debug("wincrypt: certificate request: try encode validity period to asn");
    const auto now = boost::posix_time::second_clock::universal_time();
    return tools::encodePrivateKeyUsagePeriod({filetime(now), filetime(now + boost::gregorian::days(days))});
}

} // namespace

std::vector<Encoded> encodeExtensions(const crypto::CsrCreatorParams& params, std::string keyIdentifier) {
    std::vector<Encoded> extensions;
    const auto add = [&](const char* oid, bool asked, const auto& encode) {
        if (asked) {
            extensions.push_back({oid, encode()});
            return;
        }
        for (const auto& [keptOid, der] : params.keptExtensions) {
            if (keptOid == oid) {
                extensions.push_back({oid, der});
            }
        }
    };
    const bool named = !params.userPrincipalName.empty() || !params.dnsNames.empty() || !params.emailNames.empty();
    add(keyUsageOid, params.keyUsage != 0, [&] { return keyUsage(params.keyUsage); });
    add(certificatePoliciesOid, !params.certificatePolicies.empty(),
        [&] { return certificatePolicies(params.certificatePolicies); });
    add(enhancedKeyUsageOid, !params.enhancedKeyUsage.empty(),
        [&] { return enhancedKeyUsage(params.enhancedKeyUsage); });
    add(subjectAltNameOid, named, [&] { return subjectAltName(params); });
    add(capi::szOID_SUBJECT_KEY_IDENTIFIER, true,
        [&] { return tools::encodeSubjectNameIdentifier(blob(keyIdentifier)); });
    add(subjectSignToolOid, !params.subjectSignTool.empty(),
        [&] { return tools::encodeString(boost::string_view(params.subjectSignTool)); });
    add(identificationKindOid, params.identificationKind.has_value(),
        [&] { return tools::encodeInteger(*params.identificationKind); });
    add(privateKeyUsagePeriodOid, params.privateKeyDays.has_value(),
        [&] { return privateKeyUsagePeriod(*params.privateKeyDays); });
    return extensions;
}

} // namespace orvik::plugin::wincrypt::csr
