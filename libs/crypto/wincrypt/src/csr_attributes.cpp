#include "csr_parts.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/version_registry.hpp"

namespace orvik::plugin::wincrypt::csr {

namespace {

constexpr const char* osVersionOid = "1.3.6.1.4.1.311.13.2.3";
constexpr const char* clientInfoOid = "1.3.6.1.4.1.311.21.20";
constexpr const char* extensionRequestOid = "1.2.840.113549.1.9.14";

std::string cspProvider(const crypto::IProvider& provider) {
    log::debug("wincrypt: certificate request: try encode сsp provider name to asn");
    CRYPT_CSP_PROVIDER description{};
    description.dwKeySpec = capi::AT_KEYEXCHANGE;
    description.pwszProviderName = const_cast<wchar_t*>(provider.name().c_str()); // the encoder only reads it
    return tools::encodeCspProvider(description);
}

/// Tells the authority which software made the request.
std::string nameValuePair() {
    std::wstring name = L"ClientVersion";
    std::wstring value = L"klunortredi " + plugin::converter::utf8_to_utf16(VersionRegistry::product());
    return tools::encodeNamValuePair({name.data(), value.data()});
}

std::string extensionRequest(std::vector<Encoded> extensions) {
    std::vector<CERT_EXTENSION> list;
    list.reserve(extensions.size());
    for (auto& extension : extensions) {
        list.push_back({const_cast<char*>(extension.oid),
                        0,
                        {static_cast<DWORD>(extension.der.size()), reinterpret_cast<BYTE*>(extension.der.data())}});
    }
    CERT_EXTENSIONS request{static_cast<DWORD>(list.size()), list.data()};
    return tools::encodeCertExtensions(&request);
}

} // namespace

std::vector<Encoded> encodeAttributes(const crypto::CsrCreatorParams& params, std::vector<Encoded> extensions) {
    std::vector<Encoded> attributes;
    if (params.machineInfo) {
        attributes.push_back({osVersionOid, tools::encodeOsVersion()});
    }
    attributes.push_back({capi::szOID_ENROLLMENT_CSP_PROVIDER, cspProvider(*params.provider)});
    attributes.push_back({capi::szOID_ENROLLMENT_NAME_VALUE_PAIR, nameValuePair()});
    if (params.machineInfo) {
        attributes.push_back({clientInfoOid, tools::encodeClientInfo()});
    }
    attributes.push_back({extensionRequestOid, extensionRequest(std::move(extensions))});
    return attributes;
}

} // namespace orvik::plugin::wincrypt::csr
