#include "crypto/wincrypt/tools_verify.hpp"

#include "decoding_message.hpp"
#include "signature_verdict.hpp"

#include "capi/constants.hpp"
#include "capi/exceeded_limit.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <cstring>
#include <istream>
#include <map>
#include <string>
#include <utility>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

using crypto::exception::SystemException;
using CertificatePtr = boost::shared_ptr<crypto::ICertificate>;

/// Certificates of one issuer and serial number that are tried for one signer. An honest message has one; a renewed
/// certificate of a careless authority may make it two. Each costs a signature check.
constexpr std::size_t mostTwins = 4;

/// Checks with a second, third or fourth certificate, of all signers of a message together.
constexpr std::size_t mostFurtherTries = 64;

PCCERT_CONTEXT contextOf(const crypto::ICertificate& certificate) {
    return toPCCERT_CONTEXT(certificate.context());
}

/// The service's code; 0 when the signature holds.
unsigned check(void* message, unsigned index, const crypto::ICertificate& certificate) {
    CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters{sizeof parameters, 0, index, capi::CMSG_VERIFY_SIGNER_CERT,
                                                  const_cast<CERT_CONTEXT*>(contextOf(certificate))};
    if (CryptMsgControl(message, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters) != 0) {
        return 0;
    }
    const unsigned code = GetLastErrorEx();
    return code != 0 ? code : capi::NTE_FAIL; // a refusal without a reason stays a refusal
}

bool sameBlob(const CRYPTOAPI_BLOB& a, const CRYPTOAPI_BLOB& b) {
    return a.cbData == b.cbData && (a.cbData == 0 || std::memcmp(a.pbData, b.pbData, a.cbData) == 0);
}

bool sameEncoding(const crypto::ICertificate& a, const crypto::ICertificate& b) {
    const PCCERT_CONTEXT left = contextOf(a);
    const PCCERT_CONTEXT right = contextOf(b);
    return left->cbCertEncoded == right->cbCertEncoded &&
           std::memcmp(left->pbCertEncoded, right->pbCertEncoded, left->cbCertEncoded) == 0;
}

/// Whether the service has to be asked if the signer names `certificate`: the serial numbers are equal, or the signer
/// is named by its key identifier, which a CERT_INFO expresses with the serial number 0.
bool mayName(const CERT_INFO& signer, const crypto::ICertificate& certificate) {
    const bool byKey = signer.SerialNumber.cbData == 1 && signer.SerialNumber.pbData[0] == 0;
    return byKey || sameBlob(signer.SerialNumber, contextOf(certificate)->pCertInfo->SerialNumber);
}

/// The different certificates of one issuer and serial number, or of one key identifier; searched for as they are asked
/// for.
class Candidates {
public:
    Candidates(void* store, std::string id) : store_(store), id_(std::move(id)) {}

    /// The one at `index`; null behind the last, and when the search failed.
    CertificatePtr at(std::size_t index) {
        while (!ended_ && index >= found_.size()) {
            findNext();
        }
        return index < found_.size() ? found_[index] : CertificatePtr{};
    }
    /// Of a search that failed; 0 when none did.
    [[nodiscard]] unsigned code() const { return code_; }

private:
    void findNext() {
        PCCERT_CONTEXT previous = nullptr;
        if (last_) {
            previous = CertDuplicateCertificateContext(contextOf(*last_)); // the search releases it
            if (previous == nullptr) {
                end(GetLastErrorEx());
                return;
            }
        }
        const PCCERT_CONTEXT next = CertFindCertificateInStore(store_, capi::X509_AND_PKCS_7, 0,
                                                               capi::CERT_FIND_SUBJECT_CERT, id_.data(), previous);
        if (next == nullptr) {
            const unsigned error = GetLastErrorEx();
            end(error == capi::CRYPT_E_NOT_FOUND ? 0 : error);
            return;
        }
        last_ = boost::make_shared<Certificate>(fromPCCERT_CONTEXT(next));
        const auto same = [&](const CertificatePtr& other) { return sameEncoding(*other, *last_); };
        if (std::ranges::none_of(found_, same)) {
            found_.push_back(last_);
        }
    }
    void end(unsigned code) {
        ended_ = true;
        code_ = code;
    }

    void* store_;
    std::string id_; ///< a CERT_INFO and what it points to
    CertificatePtr last_;
    std::vector<CertificatePtr> found_;
    bool ended_ = false;
    unsigned code_ = 0;
};

/// The message's certificates by who names them. Signers that name the same certificate share one search, so that all
/// searches together meet each certificate once or twice, however many signers there are.
class CarriedCertificates {
public:
    explicit CarriedCertificates(void* store) : store_(store) {}

    /// `id` is what `certInfo` returns.
    Candidates& named(std::string id) {
        const auto text = [](const CRYPTOAPI_BLOB& blob) {
            return blob.cbData == 0 ? std::string()
                                    : std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
        };
        const auto* signer = reinterpret_cast<const CERT_INFO*>(id.data());
        const auto key = std::make_pair(text(signer->Issuer), text(signer->SerialNumber));
        return lists_.try_emplace(key, store_, std::move(id)).first->second;
    }

private:
    void* store_;
    std::map<std::pair<std::string, std::string>, Candidates> lists_;
};

/// A signer's verdict grows with each certificate tried: valid ends the search, and what could not be judged outweighs
/// what was refused, because one of the others may be the signer's.
void take(SignerVerdict& verdict, bool first, unsigned code, const CertificatePtr& certificate) {
    const SignatureVerdict judged = verdictOf(code);
    const bool weaker = judged == SignatureVerdict::unknown && verdict.verdict == SignatureVerdict::invalid;
    if (first || judged == SignatureVerdict::valid || weaker) {
        verdict = {judged, code, certificate};
    }
}

SignerVerdict judgeByMessage(void* message, unsigned index, Candidates& candidates, std::size_t& furtherTries) {
    SignerVerdict verdict{SignatureVerdict::unknown, capi::CRYPT_E_SIGNER_NOT_FOUND, {}};
    for (std::size_t i = 0; const CertificatePtr candidate = candidates.at(i); ++i) {
        if (i == mostTwins || (i > 0 && furtherTries == 0)) {
            return {SignatureVerdict::unknown, capi::CRYPT_E_ASN1_LARGE, verdict.certificate};
        }
        furtherTries -= i == 0 ? 0U : 1U;
        take(verdict, i == 0, check(message, index, *candidate), candidate);
        if (verdict.verdict == SignatureVerdict::valid) {
            return verdict;
        }
    }
    if (candidates.code() != 0) { // what was not found may be the signer's
        return {SignatureVerdict::unknown, candidates.code(), verdict.certificate};
    }
    return verdict;
}

SignerVerdict judge(void* message, unsigned index, CarriedCertificates& carried, const CertificatePtr& outside,
                    std::size_t& furtherTries) {
    std::string id = certInfo(message, index);
    const auto* signer = reinterpret_cast<const CERT_INFO*>(id.data());
    if (outside && outside->context() != nullptr && mayName(*signer, *outside)) {
        const unsigned code = check(message, index, *outside);
        if (code != capi::CRYPT_E_SIGNER_NOT_FOUND) {
            return {verdictOf(code), code, outside};
        }
    }
    return judgeByMessage(message, index, carried.named(std::move(id)), furtherTries);
}

/// Attaches to the refusal of a message which limit of the service the message exceeds, where the service says so.
void nameLimit(void* message, SystemException& refusal) {
    DWORD size = 0;
    if (static_cast<unsigned>(refusal.code().value()) != capi::CRYPT_E_ASN1_LARGE ||
        CryptMsgGetParam(message, capi::CMSG_EXCEEDED_LIMIT_PARAM, 0, nullptr, &size) == 0 || size == 0) {
        return;
    }
    std::string limit(size, '\0');
    if (CryptMsgGetParam(message, capi::CMSG_EXCEEDED_LIMIT_PARAM, 0, limit.data(), &size) != 0) {
        refusal << exception::Message_(limit.c_str());
    }
}

} // namespace
} // namespace internal

std::vector<SignerVerdict> judgeSigners(void* hMsg, const boost::shared_ptr<crypto::ICertificate>& outside) {
    const unsigned count = param(hMsg, capi::CMSG_SIGNER_COUNT_PARAM);
    const HCERTSTORE store(hMsg);
    if (!store) {
        raise(internal::SystemException(), {"tools", "judgeSigners"});
    }
    internal::CarriedCertificates carried(store.get());
    std::size_t furtherTries = internal::mostFurtherTries;
    std::vector<SignerVerdict> verdicts;
    for (unsigned index = 0; index < count; ++index) {
        try {
            verdicts.push_back(internal::judge(hMsg, index, carried, outside, furtherTries));
        } catch (const internal::SystemException& e) { // the service failed; the other signers are judged all the same
            verdicts.push_back({SignatureVerdict::unknown, static_cast<unsigned>(e.code().value()), {}});
        }
    }
    return verdicts;
}

std::vector<SignerVerdict> verifySigners(std::istream& signature, const boost::optional<std::istream&>& content,
                                         const VerifyHooks& hooks) {
    const DecodingMessage message(content.has_value(), hooks);
    try {
        message.feed(signature, "signature");
        if (content) {
            message.feed(*content, "content");
        }
    } catch (internal::SystemException& e) {
        internal::nameLimit(message.get(), e);
        throw;
    }
    auto verdicts = judgeSigners(message.get(), hooks.certificate);
    if (hooks.inspect) {
        hooks.inspect(message.get());
    }
    return verdicts;
}

} // namespace orvik::plugin::wincrypt::tools
