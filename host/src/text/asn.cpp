#include "orvik/plugin/asn.hpp"

#include "ossl/owners.hpp"
#include "time_text.hpp"

#include <openssl/asn1.h>

#include <algorithm>
#include <new>

namespace orvik::plugin::asn {

std::string utf8String(boost::string_view text) {
    const ssl::internal::Owned<ASN1_UTF8STRING, ASN1_UTF8STRING_free> value(ASN1_UTF8STRING_new());
    if (!value || ASN1_STRING_set(value.get(), text.data(), static_cast<int>(text.size())) != 1) {
        throw std::bad_alloc();
    }
    return ssl::internal::toDer(value.get(), i2d_ASN1_UTF8STRING);
}

namespace converter {

boost::posix_time::ptime utc_time_to_ptime(const std::string& value, const std::string& format) {
    const auto end = std::find_if(value.begin(), value.end(), [](char c) { return c < '0' || c > '9'; });
    return internal::parseTime(std::string(value.begin(), end), format).time;
}

} // namespace converter

} // namespace orvik::plugin::asn
