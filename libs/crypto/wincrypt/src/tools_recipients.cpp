#include "crypto/wincrypt/tools_recipients.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

#include <string_view>

namespace orvik::plugin::wincrypt::tools {

namespace {

std::string octets(const CRYPTOAPI_BLOB& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

/// The CryptoAPI reports a recipient that is named by its key identifier under a Name with one attribute of type
/// 1.3.6.1.4.1.311.10.7.1, whose value is the identifier as OCTET STRING. Identifiers are short (20 octets), so every
/// length takes one octet. Empty for any other name.
std::string keyIdentifierIn(std::string_view name) {
    constexpr std::string_view type("\x06\x0A\x2B\x06\x01\x04\x01\x82\x37\x0A\x07\x01", 12);
    constexpr std::size_t headers = 6; // SEQUENCE, SET, SEQUENCE
    constexpr std::size_t before = headers + type.size() + 2;
    constexpr char octetString = '\x04';
    if (name.size() <= before || name.substr(headers, type.size()) != type || name[before - 2] != octetString ||
        static_cast<unsigned char>(name[before - 1]) != name.size() - before) {
        return {};
    }
    return std::string(name.substr(before));
}

/// The helper returns the property one octet short; that octet lies after the string's end.
std::string keyIdentifierOf(PCCERT_CONTEXT certificate) {
    const auto property = CertGetCertificateContextPropertyEx(certificate, capi::CERT_KEY_IDENTIFIER_PROP_ID);
    return property.empty() ? std::string() : std::string(property.data(), property.size() + 1);
}

} // namespace

RecipientName recipientName(const CERT_INFO& info) {
    RecipientName name{octets(info.Issuer), octets(info.SerialNumber), {}};
    name.keyIdentifier = keyIdentifierIn(name.issuer);
    if (!name.keyIdentifier.empty()) {
        name.issuer.clear();
        name.serialNumber.clear();
    }
    return name;
}

bool isNamed(const RecipientName& name, const crypto::ICertificate& certificate) {
    const auto* const context = toPCCERT_CONTEXT(certificate.context());
    if (context == nullptr) {
        return false;
    }
    if (!name.keyIdentifier.empty()) {
        return name.keyIdentifier == keyIdentifierOf(context);
    }
    const auto& own = *context->pCertInfo;
    return !name.issuer.empty() && name.serialNumber == octets(own.SerialNumber) && name.issuer == octets(own.Issuer);
}

std::vector<RecipientName> recipients(void* hMsg) {
    DWORD count = 0;
    DWORD size = sizeof count;
    if (CryptMsgGetParam(hMsg, capi::CMSG_RECIPIENT_COUNT_PARAM, 0, &count, &size) == 0) {
        exception::raise(crypto::exception::SystemException(), {"tools", "recipients"});
    }
    std::vector<RecipientName> names;
    for (DWORD index = 0; index < count; ++index) {
        const auto info = CryptMsgGetParamEx(hMsg, capi::CMSG_RECIPIENT_INFO_PARAM, index);
        names.push_back(info.size() < sizeof(CERT_INFO)
                            ? RecipientName{}
                            : recipientName(*reinterpret_cast<const CERT_INFO*>(info.data())));
    }
    return names;
}

} // namespace orvik::plugin::wincrypt::tools
