#include "digest_message.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "input.hpp"
#include "message_octets.hpp"

#include <cstdint>
#include <istream>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::exception::SystemException;

BOOL dropContent(const void* /*argument*/, BYTE* /*data*/, DWORD /*size*/, BOOL /*final*/) {
    return 1;
}

/// The service's code of checking the digest, 0 when it matches.
std::uint32_t check(Input& input, const std::string& contentPath) {
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, dropContent, nullptr};
    wincrypt::HCRYPTMSG message;
    *message.put() = wincrypt::CryptMsgOpenToDecode(
        capi::X509_AND_PKCS_7, contentPath.empty() ? 0 : capi::CMSG_DETACHED_FLAG, 0, 0, nullptr, &stream);
    if (!message) {
        return wincrypt::GetLastErrorEx();
    }
    try {
        MessageOctets octets(*input.decoded().rdbuf());
        std::istream digested(&octets);
        wincrypt::tools::read(message.get(), digested);
        input.check();
        if (!contentPath.empty()) {
            Input content(contentPath);
            wincrypt::tools::read(message.get(), content.raw());
            content.check();
        }
    } catch (const SystemException& e) {
        return static_cast<std::uint32_t>(e.code().value());
    }
    if (wincrypt::CryptMsgControl(message.get(), 0, capi::CMSG_CTRL_VERIFY_HASH, nullptr) != 0) {
        return 0;
    }
    const std::uint32_t code = wincrypt::GetLastErrorEx();
    return code != 0 ? code : capi::NTE_FAIL; // a refusal without a reason stays a refusal
}

} // namespace

std::string digestVerdict(Input& input, const std::string& contentPath) {
    const std::string kind = "this is a digest (CMS DigestedData), not a signature: ";
    const std::uint32_t code = check(input, contentPath);
    switch (code) {
    case 0:
        return kind + "the digest matches the content, but nobody signed it";
    case capi::CRYPT_E_HASH_VALUE:
        return kind + "the digest does not match the content, and nobody signed it";
    case capi::CRYPT_E_STREAM_MSG_NOT_READY:
        return kind + "nobody signed it, and its content is not inside (name it with --content)";
    default:
        return kind + "nobody signed it, and the digest was not checked (" + refusalReason(code) + ")";
    }
}

} // namespace klunortredi::cli
