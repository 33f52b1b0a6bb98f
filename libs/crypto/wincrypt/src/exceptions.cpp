#include "crypto/wincrypt/exceptions.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "capi/constants.hpp"

#include "orvik/plugin/converter.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <string>

namespace orvik::plugin::crypto::exception {

namespace internal {
namespace {

constexpr unsigned messageCapacity = 4096;

/// The service's text for a code, octets as it gives them. The buffer is one per thread, so that two threads never
/// read each other's text.
std::string getLastErrorMessage(unsigned code) {
    static thread_local std::array<char, messageCapacity> buffer;
    const DWORD length =
        wincrypt::FormatMessageW(capi::FORMAT_MESSAGE_FROM_SYSTEM | capi::FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                 capi::LANG_NEUTRAL_SUBLANG_DEFAULT, buffer.data(), messageCapacity, nullptr);
    return {buffer.data(), std::min(length, messageCapacity)};
}

class SystemCategory final : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "System"; }

    [[nodiscard]] std::string message(int code) const override {
        try {
            std::string text = getLastErrorMessage(static_cast<unsigned>(code));
            std::erase(text, '\r');
            std::erase(text, '\n');
            return converter::cp1251_to_utf8(text);
        } catch (...) { // a code without a text is not worth a second failure
            return {};
        }
    }
};

} // namespace
} // namespace internal

SystemException::SystemException() : SystemException(wincrypt::GetLastErrorEx()) {}

SystemException::SystemException(int code) : Exception(std::error_code(code, systemCategory())) {}

SystemException::SystemException(unsigned code) : SystemException(static_cast<int>(code)) {}

SystemException::~SystemException() = default;

const char* SystemException::error() const {
    static thread_local std::string text;
    text = "CryptoError: " + std::to_string(static_cast<unsigned>(code().value()));
    return text.c_str();
}

bool SystemException::cancelled(int code) {
    return cancelled(static_cast<unsigned>(code));
}

bool SystemException::cancelled(unsigned code) {
    static const std::set<unsigned> codes{capi::ERROR_CANCELLED, capi::SCARD_W_CANCELLED_BY_USER,
                                          capi::ERROR_INVALID_PARAMETER};
    return codes.contains(code);
}

bool SystemException::cancelled() const {
    return cancelled(code().value());
}

const std::error_category& systemCategory() {
    static const internal::SystemCategory category;
    return category;
}

} // namespace orvik::plugin::crypto::exception
