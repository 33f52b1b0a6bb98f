#include "signers.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/constant.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <span>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;

constexpr std::string_view timestampToken = "1.2.840.113549.1.9.16.2.14";

/// The structure that a sizing helper delivered; it lives in the string.
template <class T>
T* structure(std::string& octets) {
    return reinterpret_cast<T*>(octets.data());
}

CertificatePtr certificateOf(void* message, unsigned index) {
    const wincrypt::HCERTSTORE store(message);
    std::string id = wincrypt::tools::certInfo(message, index);
    const PCCERT_CONTEXT found =
        wincrypt::CertGetSubjectCertificateFromStore(store.get(), capi::X509_AND_PKCS_7, structure<CERT_INFO>(id));
    return found == nullptr
               ? CertificatePtr{}
               : CertificatePtr{boost::make_shared<wincrypt::Certificate>(wincrypt::tools::fromPCCERT_CONTEXT(found))};
}

const CRYPT_ATTRIBUTE* attribute(const CRYPT_ATTRIBUTES& attributes, std::string_view oid) {
    for (const CRYPT_ATTRIBUTE& entry : std::span(attributes.rgAttr, attributes.cAttr)) {
        if (entry.pszObjId == oid) {
            return &entry;
        }
    }
    return nullptr;
}

boost::posix_time::ptime timeOf(const CRYPT_ATTRIBUTE* signingTime) {
    FILETIME time{};
    DWORD size = sizeof time;
    if (signingTime == nullptr || signingTime->cValue == 0 ||
        wincrypt::CryptDecodeObject(capi::X509_AND_PKCS_7,
                                    reinterpret_cast<const char*>(std::uintptr_t{capi::X509_CHOICE_OF_TIME}),
                                    signingTime->rgValue->pbData, signingTime->rgValue->cbData, 0, &time, &size) == 0) {
        return {};
    }
    return wincrypt::converter::to_ptime(time);
}

std::uint32_t check(void* message, const CertificatePtr& certificate) {
    if (!certificate) {
        return capi::CRYPT_E_SIGNER_NOT_FOUND;
    }
    const PCCERT_CONTEXT context = wincrypt::tools::toPCCERT_CONTEXT(certificate->context());
    return wincrypt::CryptMsgControl(message, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE, context->pCertInfo) != 0
               ? 0
               : wincrypt::GetLastErrorEx();
}

} // namespace

std::vector<Signer> readSigners(void* message, const CertificatePtr& outside) {
    std::vector<Signer> signers;
    const unsigned count = wincrypt::tools::param(message, capi::CMSG_SIGNER_COUNT_PARAM);
    for (unsigned index = 0; index < count; ++index) {
        std::string octets = wincrypt::CryptMsgGetParamEx(message, capi::CMSG_SIGNER_INFO_PARAM, index);
        const auto* info = structure<CMSG_SIGNER_INFO>(octets);
        Signer signer;
        signer.certificate = certificateOf(message, index);
        if (!signer.certificate) {
            signer.certificate = outside;
        }
        signer.digestAlgorithm = info->HashAlgorithm.pszObjId;
        signer.signingTime = timeOf(attribute(info->AuthAttrs, orvik::plugin::oid::signingTime));
        signer.timestamped = attribute(info->UnauthAttrs, timestampToken) != nullptr;
        signer.refusal = index == 0 ? 0 : check(message, signer.certificate);
        signers.push_back(std::move(signer));
    }
    return signers;
}

} // namespace klunortredi::cli
