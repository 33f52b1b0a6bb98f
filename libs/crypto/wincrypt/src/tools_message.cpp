#include "crypto/wincrypt/tools.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "capi/constants.hpp"

#include <array>
#include <istream>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

constexpr std::size_t chunkSize = 4096;

[[noreturn]] void fail(const char* function) {
    exception::raise(crypto::exception::SystemException(), {"tools", function});
}

bool atEnd(std::istream& in) {
    return in.peek() == std::istream::traits_type::eof();
}

} // namespace
} // namespace internal

unsigned param(void* hMsg, DWORD dwParamType) {
    unsigned value = 0;
    DWORD size = sizeof value;
    if (!CryptMsgGetParam(hMsg, dwParamType, 0, &value, &size)) {
        internal::fail("param");
    }
    return value;
}

std::string certInfo(void* hMsg, unsigned index) {
    DWORD size = 0;
    if (!CryptMsgGetParam(hMsg, capi::CMSG_SIGNER_CERT_INFO_PARAM, index, nullptr, &size) || size == 0) {
        internal::fail("certInfo");
    }
    std::string info(size, '\0');
    if (!CryptMsgGetParam(hMsg, capi::CMSG_SIGNER_CERT_INFO_PARAM, index, info.data(), &size)) {
        internal::fail("certInfo");
    }
    return info;
}

bool read(void* hMsg, std::istream& in) {
    std::array<char, internal::chunkSize> chunk;
    while (!internal::atEnd(in)) {
        in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        const auto count = static_cast<DWORD>(in.gcount());
        const BOOL final = internal::atEnd(in) ? 1 : 0;
        if (!CryptMsgUpdate(hMsg, reinterpret_cast<const BYTE*>(chunk.data()), count, final)) {
            internal::fail("read");
        }
    }
    return true;
}

} // namespace orvik::plugin::wincrypt::tools
