#include "crypto/wincrypt/csr_creator.hpp"

#include "cancellation.hpp"
#include "csr_parts.hpp"
#include "log_text.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/log.hpp"
#include "provider_record.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <array>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::CsrCreatorParams;
using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using crypto::tools::ParamSetInfo;
using exception::ApplicationException;

constexpr const char* file = "csr_creator";

/// CryptoPro XchA, the parameter set of keys for which none is asked.
constexpr const char* defaultAgreementAlgorithm = "1.2.643.2.2.36.0";

/// RSA keys (RFC 8017, appendix A.1).
constexpr const char* rsaEncryption = "1.2.840.113549.1.1.1";

[[noreturn]] void refuse(CryptoException::Code code, const char* function) {
    raise(CryptoException(code), {file, function});
}

/// For a call that may have asked the person something.
[[noreturn]] void refuse(const SystemException& failure, const char* function) {
    if (failure.cancelled()) {
        raise(ApplicationException(ApplicationException::Code::cancelled), {file, function});
    }
    raise(failure, {file, function});
}

bool contains(const std::vector<std::string>& oids, const std::string& oid) {
    return std::find(oids.begin(), oids.end(), oid) != oids.end();
}

std::string getAgreementAlgorithm(const crypto::IProvider& provider, const std::string& paramSet) {
    constexpr const char* function = "getAgreementAlgorithm";
    const bool cng = crypto::tools::isCNG(provider);
    if (paramSet.empty()) {
        return cng ? plugin::converter::utf16_to_utf8(crypto::constant::BCRYPT_ITCS_SIGN_2012_256_ALGORITHM)
                   : defaultAgreementAlgorithm;
    }
    const auto info = providerRecord(provider.name());
    if (!info || !contains(info->paramSets, paramSet)) {
        refuse(CryptoException::Code::parameterSetUnsupported, function);
    }
    const auto set = crypto::tools::algorithmParamSet(paramSet);
    const auto algorithms = crypto::tools::algorithms(provider);
    if (!set || (!contains(algorithms, set->algorithm) && !contains(algorithms, set->secondAlgorithm))) {
        refuse(CryptoException::Code::algorithmUnsupported, function);
    }
    if (!cng) {
        return set->oid;
    }
    const auto name = tools::oid_to_cng_alg_id(set->algorithm);
    if (!name) {
        refuse(CryptoException::Code::algorithmUnsupported, function);
    }
    return *name;
}

/// ViPNet's older providers take the parameter set of a signature key under a number of its own; its newest one takes
/// every key's there.
DWORD agreementParameter(unsigned keySpec, unsigned providerType) {
    const bool signatureOid = keySpec == capi::AT_SIGNATURE
                                  ? providerType == 2 || providerType == 77 || providerType == 78
                                  : providerType == 78;
    return signatureOid ? capi::PP_SIGNATURE_ALGORITHM_OID : capi::PP_EXCHANGE_ALGORITHM_OID;
}

void setAgreementAlgorithm(const CsrCreatorParams& params, const std::string& algorithm, unsigned long hProv) {
    log::info("wincrypt: certificate request: container: " + quotedName(params.container) +
              ", algorithm: " + algorithm);
    if (crypto::tools::isCNG(params.provider->name())) {
        return;
    }
    const auto parameter = agreementParameter(tools::keySpec(hProv), params.provider->type());
    if (CryptSetProvParam(hProv, parameter, reinterpret_cast<const BYTE*>(algorithm.c_str()), 0) == 0) {
        raise(SystemException(), {file, "setAgreementAlgorithm"});
    }
}

/// A new key in the context's container, or only its PIN where the key is there.
void generateKey(const CsrCreatorParams& params, unsigned long hProv, HCRYPTKEY& key, const std::string& pin) {
    constexpr const char* function = "generateKey";
    if (crypto::tools::isCNG(params.provider->name())) {
        return;
    }
    if (!pin.empty() && CryptSetProvParam(hProv, capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()),
                                          params.existingKey ? 0 : capi::PIN_SET_NEW) == 0) {
        refuse(SystemException(), function);
    }
    const DWORD flags = params.exportable ? capi::CRYPT_EXPORTABLE : 0;
    if (!params.existingKey && CryptGenKey(hProv, capi::AT_KEYEXCHANGE, flags, key.put()) == 0) {
        refuse(SystemException(), function);
    }
}

ParamSetInfo paramSet(const CsrCreatorParams& params) {
    const auto set =
        crypto::tools::algorithmParamSet(params.paramSet.empty() ? defaultAgreementAlgorithm : params.paramSet,
                                         crypto::tools::algorithms(*params.provider));
    if (!set) {
        refuse(CryptoException::Code::parameterSetUnsupported, "create");
    }
    return *set;
}

/// What goes with a key that is there: a parameter set of the provider with the key's algorithm.
ParamSetInfo paramSetOf(const CERT_PUBLIC_KEY_INFO& key, const CsrCreatorParams& params) {
    const auto record = providerRecord(params.provider->name());
    const auto algorithms = crypto::tools::algorithms(*params.provider);
    for (const auto& oid : record ? record->paramSets : std::vector<std::string>{}) {
        auto set = crypto::tools::algorithmParamSet(oid, algorithms);
        if (set && set->algorithm == key.Algorithm.pszObjId) {
            return *std::move(set);
        }
    }
    refuse(CryptoException::Code::algorithmUnsupported, "create");
}

/// Identifier of the key, with the hash that goes with it: the provider that makes such keys offers it for certain.
std::string keyIdentifier(const crypto::IProvider& provider, CERT_PUBLIC_KEY_INFO& key, const ParamSetInfo& set) {
    const auto hash = tools::oid_to_alg_id(set.hashAlgorithm);
    if (!hash) {
        refuse(CryptoException::Code::algorithmUnsupported, "create");
    }
    return tools::exportHashInfoFromPubKey(provider, &key, *hash);
}

/// Signatures with RSA have the parameter NULL (RFC 4055, 5); those with GOST keys have none (RFC 9215, 2).
CRYPT_ALGORITHM_IDENTIFIER signatureAlgorithm(ParamSetInfo& set) {
    static std::array<BYTE, 2> derNull{0x05, 0x00};
    CRYPT_ALGORITHM_IDENTIFIER algorithm{set.signatureAlgorithm.data(), {}};
    if (set.algorithm == rsaEncryption) {
        algorithm.Parameters = {static_cast<DWORD>(derNull.size()), derNull.data()};
    }
    return algorithm;
}

std::string sign(const CsrCreatorParams& params, unsigned long hProv, std::string subject) {
    auto exported = tools::exportPublicKeyInfo(hProv);
    if (exported.empty()) {
        raise(SystemException(), {file, "create"});
    }
    auto& key = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(exported.data());
    auto set = params.existingKey ? paramSetOf(key, params) : paramSet(params);
    auto encoded =
        csr::encodeAttributes(params, csr::encodeExtensions(params, keyIdentifier(*params.provider, key, set)));
    std::vector<CRYPT_ATTR_BLOB> values;
    std::vector<CRYPT_ATTRIBUTE> attributes;
    values.reserve(encoded.size());
    for (auto& attribute : encoded) {
        values.push_back({static_cast<DWORD>(attribute.der.size()), reinterpret_cast<BYTE*>(attribute.der.data())});
        attributes.push_back({const_cast<char*>(attribute.oid), 1, &values.back()});
    }
    CERT_REQUEST_INFO info{0,
                           {static_cast<DWORD>(subject.size()), reinterpret_cast<BYTE*>(subject.data())},
                           key,
                           static_cast<DWORD>(attributes.size()),
                           attributes.data()};
    auto algorithm = signatureAlgorithm(set);
    try {
        return tools::encodeRequestInfo(hProv, &info, &algorithm);
    } catch (const SystemException& e) {
        refuse(e, "create");
    }
}

/// Deletes the container of exactly that name; what made the request fail is what the caller reports. False when the
/// service refuses for another reason than that there is none.
bool deleted(const CsrCreatorParams& params, const std::wstring& name) {
    unsigned long none = 0;
    return CryptAcquireContextW(&none, name.c_str(), params.provider->name().c_str(), params.provider->type(),
                                capi::CRYPT_DELETEKEYSET) != 0 ||
           GetLastErrorEx() == capi::NTE_BAD_KEYSET;
}

/// The key pair and the signed request for it.
boost::shared_ptr<crypto::ICsrCreator::Result> fill(const CsrCreatorParams& params, const std::string& algorithm,
                                                    const std::string& pin, std::string subject, unsigned long hProv) {
    if (!params.existingKey) {
        setAgreementAlgorithm(params, algorithm, hProv);
    }
    HCRYPTKEY key;
    generateKey(params, hProv, key, pin);
    auto result = boost::make_shared<crypto::ICsrCreator::Result>();
    result->request = base64::encode(sign(params, hProv, std::move(subject)));
    result->containerPath = plugin::converter::utf16_to_utf8(tools::exportContainerPath(hProv));
    result->containerName = plugin::converter::utf16_to_utf8(tools::exportContainerName(hProv));
    return result;
}

/// Everything up to the signed request, in one context. When it fails, the container that it made is deleted before its
/// context is released, because the name is free for others afterwards. A service that refuses to delete a container in
/// use leaves it: `left` is its name then.
boost::shared_ptr<crypto::ICsrCreator::Result> make(const CsrCreatorParams& params, const std::string& pin,
                                                    std::string subject, std::wstring& left) {
    const auto algorithm =
        params.existingKey ? std::string() : getAgreementAlgorithm(*params.provider, params.paramSet);
    unsigned error = 0;
    std::wstring made;
    const HCRYPTPROV context(params.container, params.provider->name(), params.provider->type(),
                             params.existingKey ? 0 : capi::CRYPT_NEWKEYSET, &error, made);
    if (acquisitionCancelled(error)) {
        raise(ApplicationException(ApplicationException::Code::cancelled), {file, "create"});
    }
    if (error != 0) {
        raise(SystemException(error), {file, "create"});
    }
    try {
        return fill(params, algorithm, pin, std::move(subject), context.get());
    } catch (...) {
        if (context && !params.existingKey && !made.empty() && !deleted(params, made)) {
            left = made;
        }
        throw;
    }
}

} // namespace
} // namespace internal

CsrCreator::~CsrCreator() = default;

boost::shared_ptr<crypto::ICsrCreator::Result>
CsrCreator::create(const boost::shared_ptr<crypto::CsrCreatorParams>& params, const std::string& pin) const {
    if (!params || !params->provider) {
        internal::refuse(internal::CryptoException::Code::noProvider, "create");
    }
    auto subject = params->encodedSubject.empty() ? csr::encodeSubject(params->subject) : params->encodedSubject;
    log::info("wincrypt: certificate request: provider: " + quotedName(params->provider->name()) +
              ", container: " + quotedName(params->container));
    std::wstring left;
    try {
        auto result = internal::make(*params, pin, std::move(subject), left);
        log::info("wincrypt: certificate request: done");
        return result;
    } catch (...) {
        log::info("wincrypt: certificate request: failed");
        if (!left.empty()) {
            static_cast<void>(internal::deleted(*params, left));
        }
        throw;
    }
}

} // namespace orvik::plugin::wincrypt
