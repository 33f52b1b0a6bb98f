#include "crypto/wincrypt/wincrypt_auth.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "log_text.hpp"
#include "takes_pin.hpp"

#include <boost/filesystem/operations.hpp>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// The context's container as a person knows it: some services name it by the path of its file.
std::wstring containerTitle(unsigned long context) {
    auto name = tools::exportContainerName(context);
    const boost::filesystem::path path(plugin::converter::utf16_to_utf8(name));
    boost::system::error_code ignored;
    const auto status = boost::filesystem::status(path, ignored);
    if (boost::filesystem::exists(status) && !boost::filesystem::is_directory(status)) {
        return plugin::converter::utf8_to_utf16(path.filename().string());
    }
    return name;
}

bool setPin(unsigned long context, const std::string& pin, DWORD flags) {
    return CryptSetProvParam(context, capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), flags) != 0;
}

} // namespace
} // namespace internal

WincryptAuth::WincryptAuth(unsigned long context)
    : status_(initial), states_(loggedIn), failedAttempts_(0), context_(context),
      container_(internal::containerTitle(context)) {}

WincryptAuth::~WincryptAuth() = default;

bool WincryptAuth::login(const std::string& pin) {
    states_ = 0;
    if (tools::isCNG(context_)) {
        return succeed();
    }
    if (!internal::setPin(context_, pin, capi::PIN_PRESENT)) {
        log::error("wincrypt: authorization error. set pin failed: " + lastErrorText());
        return fail();
    }
    if (!internal::setPin(context_, pin, capi::PIN_VERIFY)) {
        log::error("wincrypt: authorization error. verify pin failed: " + lastErrorText());
        return fail();
    }
    return succeed();
}

bool WincryptAuth::succeed() {
    states_ |= loggedIn;
    status_ = success;
    return true;
}

bool WincryptAuth::fail() {
    status_ = failure;
    states_ |= loginFailed;
    ++failedAttempts_;
    return false;
}

std::uint32_t WincryptAuth::status() const {
    return status_;
}

std::uint64_t WincryptAuth::states() const {
    return states_;
}

std::wstring WincryptAuth::container() const {
    return container_;
}

boost::optional<unsigned> WincryptAuth::maxAttempts() const {
    return 3U;
}

bool WincryptAuth::isAuthRejected() const {
    const auto limit = maxAttempts();
    return !limit || failedAttempts_ >= *limit;
}

bool WincryptAuth::supportAuthentication() const {
    return takesPin(tools::exportProviderName(context_));
}

} // namespace orvik::plugin::wincrypt
