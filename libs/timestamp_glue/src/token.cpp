#include "token.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"

#include <algorithm>
#include <span>

namespace orvik::plugin::timestamp_glue {

namespace {

using crypto::exception::SystemException;

/// id-ct-TSTInfo (RFC 3161, 2.4.2).
constexpr boost::string_view tstInfoOid = "1.2.840.113549.1.9.16.1.4";

/// Certificates, and CRLs, of one token that are read. A token has those of its chain.
constexpr unsigned mostCarried = 64;

std::string param(void* message, DWORD type, DWORD index = 0) {
    return wincrypt::CryptMsgGetParamEx(message, type, index);
}

/// A text parameter, whose value ends in a zero.
std::string textParam(void* message, DWORD type) {
    return param(message, type).c_str(); // NOLINT(readability-redundant-string-cstr): up to the zero
}

} // namespace

Token::Token(boost::string_view encoded) {
    *message_.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    if (!message_ || wincrypt::CryptMsgUpdate(message_.get(), reinterpret_cast<const BYTE*>(encoded.data()),
                                              static_cast<DWORD>(encoded.size()), 1) == 0) {
        raise(SystemException(), {"token", "Token"});
    }
    if (wincrypt::tools::param(message(), capi::CMSG_TYPE_PARAM) == capi::CMSG_SIGNED &&
        textParam(message(), capi::CMSG_INNER_CONTENT_TYPE_PARAM) == tstInfoOid) {
        info_ = std::make_unique<Decoded<CRYPT_TIMESTAMP_INFO>>(capi::TIMESTAMP_INFO,
                                                                param(message(), capi::CMSG_CONTENT_PARAM));
    }
}

unsigned Token::signers() const {
    return wincrypt::tools::param(message(), capi::CMSG_SIGNER_COUNT_PARAM);
}

std::string Token::digestAlgorithm() const {
    if (signers() == 0) {
        return {};
    }
    const std::string octets = param(message(), capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM);
    return reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(octets.data())->pszObjId;
}

std::vector<std::string> Token::signedAttribute(boost::string_view oid) const {
    DWORD size = 0;
    if (wincrypt::CryptMsgGetParam(message(), capi::CMSG_SIGNER_AUTH_ATTR_PARAM, 0, nullptr, &size) == 0) {
        return {}; // the signer has none
    }
    const std::string octets = param(message(), capi::CMSG_SIGNER_AUTH_ATTR_PARAM);
    const auto* const attributes = reinterpret_cast<const CRYPT_ATTRIBUTES*>(octets.data());
    std::vector<std::string> values;
    for (const CRYPT_ATTRIBUTE& attribute : std::span(attributes->rgAttr, attributes->cAttr)) {
        for (const CRYPT_ATTR_BLOB& value : std::span(attribute.rgValue, attribute.cValue)) {
            if (attribute.pszObjId == oid) {
                values.push_back(view(value).to_string());
            }
        }
    }
    return values;
}

std::vector<std::string> Token::certificates() const {
    return all(capi::CMSG_CERT_COUNT_PARAM, capi::CMSG_CERT_PARAM);
}

std::vector<std::string> Token::crls() const {
    return all(capi::CMSG_CRL_COUNT_PARAM, capi::CMSG_CRL_PARAM);
}

std::vector<std::string> Token::all(DWORD countParam, DWORD type) const {
    std::vector<std::string> found;
    const unsigned count = std::min(wincrypt::tools::param(message(), countParam), mostCarried);
    for (unsigned index = 0; index < count; ++index) {
        found.push_back(param(message(), type, index));
    }
    return found;
}

} // namespace orvik::plugin::timestamp_glue
