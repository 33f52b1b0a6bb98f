#include "message_crls.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;

std::size_t sizeOf(void* message, unsigned index) {
    DWORD size = 0;
    if (wincrypt::CryptMsgGetParam(message, capi::CMSG_CRL_PARAM, index, nullptr, &size) == 0) {
        throw orvik::plugin::crypto::exception::SystemException();
    }
    return size;
}

} // namespace

MessageCrls readCrls(void* message) {
    MessageCrls crls;
    std::size_t left = mostMessageCrlOctets;
    const unsigned count = wincrypt::tools::param(message, capi::CMSG_CRL_COUNT_PARAM);
    for (unsigned index = 0; index < count; ++index) {
        const std::size_t size = sizeOf(message, index);
        if (size > left) {
            crls.passedOver.push_back("CRL " + std::to_string(index + 1) + " of the message (" + std::to_string(size) +
                                      " octets; too large: give it with --with)");
            continue;
        }
        left -= size;
        crls.read.push_back(wincrypt::CryptMsgGetParamEx(message, capi::CMSG_CRL_PARAM, index));
    }
    return crls;
}

} // namespace klunortredi::cli
