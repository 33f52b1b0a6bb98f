#include "crypto/wincrypt/certificate_verifier.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/scoped_handle.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <array>
#include <set>
#include <vector>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

struct StatusName {
    const char* name;
    DWORD bit;
};

/// In order of importance: revocation, validity period, usage, signature, root, then the rest.
constexpr std::array statusNames{
    StatusName{"CERT_TRUST_IS_REVOKED", capi::CERT_TRUST_IS_REVOKED},
    StatusName{"CERT_TRUST_IS_NOT_TIME_VALID", capi::CERT_TRUST_IS_NOT_TIME_VALID},
    StatusName{"CERT_TRUST_IS_NOT_VALID_FOR_USAGE", capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    StatusName{"CERT_TRUST_IS_NOT_SIGNATURE_VALID", capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    StatusName{"CERT_TRUST_IS_UNTRUSTED_ROOT", capi::CERT_TRUST_IS_UNTRUSTED_ROOT},
    StatusName{"CERT_TRUST_REVOCATION_STATUS_UNKNOWN", capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN},
    StatusName{"CERT_TRUST_IS_PARTIAL_CHAIN", capi::CERT_TRUST_IS_PARTIAL_CHAIN},
    StatusName{"CERT_TRUST_IS_CYCLIC", capi::CERT_TRUST_IS_CYCLIC},
    StatusName{"CERT_TRUST_INVALID_EXTENSION", capi::CERT_TRUST_INVALID_EXTENSION},
    StatusName{"CERT_TRUST_INVALID_POLICY_CONSTRAINTS", capi::CERT_TRUST_INVALID_POLICY_CONSTRAINTS},
    StatusName{"CERT_TRUST_INVALID_BASIC_CONSTRAINTS", capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    StatusName{"CERT_TRUST_INVALID_NAME_CONSTRAINTS", capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    StatusName{"CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT", capi::CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT},
    StatusName{"CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT", capi::CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT},
    StatusName{"CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT", capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT},
    StatusName{"CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT", capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT},
    StatusName{"CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY", capi::CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY},
    StatusName{"CERT_TRUST_IS_EXPLICIT_DISTRUST", capi::CERT_TRUST_IS_EXPLICIT_DISTRUST},
    StatusName{"CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT", capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    StatusName{"CERT_TRUST_CTL_IS_NOT_TIME_VALID", capi::CERT_TRUST_CTL_IS_NOT_TIME_VALID},
    StatusName{"CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID", capi::CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID},
    StatusName{"CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE", capi::CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE},
};

using Extensions = std::set<std::string>;

const Extensions& certificateExtensions() {
    static const Extensions extensions{".crt", ".cer", ".der", ".pem", ".cert"};
    return extensions;
}

/// A path's extension is what follows its last dot, so that of these only ".crl" is ever met.
const Extensions& crlExtensions() {
    static const Extensions extensions{".crl", ".crl.pem", ".crl.der"};
    return extensions;
}

/// Owns a chain that the service built.
class Chain : public scoped_handle<PCCERT_CHAIN_CONTEXT> {
public:
    Chain() : scoped_handle(nullptr, [](PCCERT_CHAIN_CONTEXT& held) { CertFreeCertificateChain(held); }) {}
};

} // namespace
} // namespace internal

struct CertificateVerifier::Impl {
    explicit Impl(const crypto::ICertificate& which) : certificate(which) {}

    std::uint32_t status = 0;
    const crypto::ICertificate& certificate;
    std::vector<std::string> certificateFiles;
    std::vector<std::string> crlFiles;
};

CertificateVerifier::CertificateVerifier(const crypto::ICertificate& certificate)
    : impl_(boost::make_shared<Impl>(certificate)) {}

CertificateVerifier::~CertificateVerifier() = default;

void CertificateVerifier::initCA(const boost::filesystem::path& directory) {
    for (const auto& entry : boost::filesystem::directory_iterator(directory)) {
        const auto extension = boost::algorithm::to_lower_copy(entry.path().extension().string());
        if (internal::certificateExtensions().count(extension) != 0) {
            impl_->certificateFiles.push_back(entry.path().string());
        } else if (internal::crlExtensions().count(extension) != 0) {
            impl_->crlFiles.push_back(entry.path().string());
        }
    }
}

bool CertificateVerifier::validateChain(unsigned int flags) const {
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof(para);
    para.RequestedUsage.dwType = capi::USAGE_MATCH_TYPE_AND;
    internal::Chain chain;
    const BOOL built = CertGetCertificateChain(nullptr, tools::toPCCERT_CONTEXT(impl_->certificate.context()), nullptr,
                                               nullptr, &para, flags, nullptr, chain.put());
    if (built == 0) {
        static_cast<void>(chain.detach()); // whatever a failed call may have left there is not ours
    }
    if (!chain) {
        raise(crypto::exception::SystemException(), {"certificate_verifier", "getContext"});
    }
    impl_->status = chain.get()->TrustStatus.dwErrorStatus;
    return impl_->status == capi::CERT_TRUST_NO_ERROR;
}

const std::vector<std::string>& CertificateVerifier::certificateFiles() const {
    return impl_->certificateFiles;
}

const std::vector<std::string>& CertificateVerifier::crlFiles() const {
    return impl_->crlFiles;
}

std::uint32_t CertificateVerifier::status() const {
    return impl_->status;
}

std::string CertificateVerifier::statusString(long status) const {
    std::vector<std::string> names;
    for (const auto& row : internal::statusNames) {
        if ((static_cast<unsigned long>(status) & row.bit) != 0) {
            names.emplace_back(row.name);
            break;
        }
    }
    return boost::algorithm::join(names, ";");
}

} // namespace orvik::plugin::wincrypt
