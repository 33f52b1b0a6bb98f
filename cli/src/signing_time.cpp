#include "signing_time.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <cstdint>

namespace klunortredi::cli {

namespace wincrypt = orvik::plugin::wincrypt;

boost::posix_time::ptime signingTimeOf(const unsigned char* der, std::size_t size) {
    FILETIME time{};
    DWORD timeSize = sizeof time;
    if (size == 0 ||
        wincrypt::CryptDecodeObject(capi::X509_AND_PKCS_7,
                                    reinterpret_cast<const char*>(std::uintptr_t{capi::X509_CHOICE_OF_TIME}), der,
                                    static_cast<DWORD>(size), 0, &time, &timeSize) == 0) {
        return {};
    }
    return wincrypt::converter::to_ptime(time);
}

} // namespace klunortredi::cli
