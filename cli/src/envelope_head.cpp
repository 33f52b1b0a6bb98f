#include "envelope_head.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "orvik/plugin/hex.hpp"
#include "printable.hpp"
#include "signature_shape.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using namespace std::string_view_literals;
using wincrypt::tools::RecipientName;

constexpr std::size_t chunkSize = 64 * 1024;
constexpr std::size_t headSize = 256; // octets that hold the content type, whatever the form of the lengths
/// Recipients shown when none of them is ours: a message may have hundreds.
constexpr std::size_t mostShown = 8;

BOOL dropOutput(const void* /*argument*/, BYTE* /*data*/, DWORD /*size*/, BOOL /*final*/) {
    return 1;
}

/// The service's refusal of octets that are not an enveloped message.
[[noreturn]] void refuse(const std::string& what, std::uint32_t code) {
    const Failure failure = serviceFailure(what, code);
    if (failure.exit() == ExitCode::no) { // nothing was decrypted: the message is not of the form
        throw Failure(ExitCode::input, what, refusalReason(code), {}, code);
    }
    throw failure;
}

/// Refuses a message of another content type by its first octets: the service would read all of it before it fails.
void checkIsEnveloped(std::string_view head, const std::string& what) {
    constexpr std::string_view hint = "it is signed: see 'klunortredi verify --extract'";
    constexpr std::array enveloped{"1.2.840.113549.1.7.3"sv, "1.2.840.113549.1.9.16.1.23"sv}; // RFC 5652, RFC 5083
    const std::string type = contentTypeOf(head);
    if (!type.empty() && std::ranges::find(enveloped, type) == enveloped.end()) {
        throw Failure(ExitCode::input, what, "it is not an encrypted message",
                      type == signedDataType ? std::string(hint) : otherMessage(head));
    }
}

std::string cipherOf(void* message) {
    try {
        const auto algorithm = wincrypt::CryptMsgGetParamEx(message, capi::CMSG_ENVELOPE_ALGORITHM_PARAM, 0);
        return algorithm.size() < sizeof(CRYPT_ALGORITHM_IDENTIFIER)
                   ? std::string()
                   : reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(algorithm.data())->pszObjId;
    } catch (const orvik::plugin::crypto::exception::SystemException&) {
        return {};
    }
}

} // namespace

EnvelopeHead readEnvelopeHead(std::istream& message, const std::string& name) {
    const std::string what = "cannot decrypt " + name;
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, dropOutput, nullptr};
    wincrypt::HCRYPTMSG probe;
    *probe.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, &stream);
    if (!probe) {
        throw serviceFailure(what, wincrypt::GetLastErrorEx());
    }
    EnvelopeHead head;
    std::vector<char> chunk(chunkSize);
    for (;;) {
        message.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        const auto count = static_cast<std::size_t>(message.gcount());
        head.octets.append(chunk.data(), count);
        checkIsEnveloped(std::string_view(head.octets).substr(0, headSize), what);
        if (wincrypt::CryptMsgUpdate(probe.get(), reinterpret_cast<const BYTE*>(chunk.data()),
                                     static_cast<DWORD>(count), count == 0 ? 1 : 0) == 0) {
            refuse(what, wincrypt::GetLastErrorEx());
        }
        try {
            head.recipients = wincrypt::tools::recipients(probe.get());
            head.cipherOid = cipherOf(probe.get());
            return head;
        } catch (const orvik::plugin::crypto::exception::SystemException& e) {
            if (count == 0) {
                refuse(what, static_cast<std::uint32_t>(e.code().value()));
            }
        }
    }
}

std::string titleOf(const RecipientName& recipient) {
    if (!recipient.keyIdentifier.empty()) {
        return "key identifier " + orvik::plugin::hex::encode(recipient.keyIdentifier);
    }
    if (recipient.issuer.empty()) {
        return "a recipient without certificate";
    }
    std::string der = recipient.issuer;
    CERT_NAME_BLOB name{static_cast<DWORD>(der.size()), reinterpret_cast<BYTE*>(der.data())};
    constexpr DWORD format = capi::CERT_X500_NAME_STR;
    const DWORD size = wincrypt::CertNameToStrW(capi::X509_AND_PKCS_7, &name, format, nullptr, 0);
    std::wstring issuer(size, L'\0');
    wincrypt::CertNameToStrW(capi::X509_AND_PKCS_7, &name, format, issuer.data(), size);
    return printableName(text::utf8(issuer.substr(0, issuer.find(L'\0')))) + ", serial " +
           text::serial(recipient.serialNumber);
}

CertificatePtr findOwnRecipient(const EnvelopeHead& head, const std::vector<CertificatePtr>& own,
                                const std::string& which, const std::string& name) {
    const auto isRecipient = [&](const CertificatePtr& certificate) {
        return std::any_of(head.recipients.begin(), head.recipients.end(), [&](const RecipientName& recipient) {
            return wincrypt::tools::isNamed(recipient, *certificate);
        });
    };
    std::vector<CertificatePtr> meant;
    if (!which.empty()) {
        meant.push_back(findCertificate(own, which, "store my"));
    } else {
        meant = own;
    }
    std::vector<CertificatePtr> found;
    std::copy_if(meant.begin(), meant.end(), std::back_inserter(found), isRecipient);
    if (!found.empty()) {
        const auto linked = std::find_if(found.begin(), found.end(), [](const CertificatePtr& certificate) {
            return certificate->container().has_value();
        });
        return linked == found.end() ? found.front() : *linked;
    }
    std::vector<std::string> names;
    for (const auto& recipient : head.recipients) {
        if (names.size() == mostShown) {
            names.push_back("...");
            break;
        }
        names.push_back(titleOf(recipient));
    }
    throw Failure(ExitCode::service, "cannot decrypt " + name,
                  (which.empty() ? "no certificate of store my is a recipient"
                                 : "the certificate named with --cert is not a recipient") +
                      std::string(" (the message is for ") + text::joined(names) + ")",
                  {}, capi::CRYPT_E_RECIPIENT_NOT_FOUND);
}

} // namespace klunortredi::cli
