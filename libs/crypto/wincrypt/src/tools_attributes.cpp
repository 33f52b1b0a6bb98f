#include "crypto/wincrypt/tools_attributes.hpp"

#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/hex.hpp"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/lexical_cast.hpp>

#include <algorithm>
#include <ctime>
#include <exception>
#include <stdexcept>
#include <string>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::format::SignedAttribute;

/// ASN.1 universal tag numbers.
enum Tag : std::uint32_t { integer = 2, octetString = 4, utf8String = 12, utcTime = 23 };

/// 1601-01-01T00:00:00Z in seconds since 1970, the first time that a FILETIME holds. Its last one lies after the year
/// 9999, the last that a ptime holds.
constexpr std::int64_t firstOfFiletime = -11644473600;

[[noreturn]] void refuse(const std::string& value, const char* function) {
    raise(exception::setValue(CryptoException(CryptoException::Code::badAttribute), value), {"tools", function});
}

std::string encodeTime(const boost::posix_time::ptime& time) {
    const auto filetime = static_cast<std::uint64_t>(converter::to_filetime(time));
    return tools::encodeTime({static_cast<DWORD>(filetime & 0xFFFFFFFFU), static_cast<DWORD>(filetime >> 32U)});
}

std::string signingTime(const std::string& value) {
    const auto time = crypto::tools::likelyUnixTimestamp(value)
                          ? plugin::converter::to_ptime(std::time_t{std::stoll(value)})
                          : plugin::converter::to_ptime(value, crypto::constant::timestampFormat);
    if (time.is_special() || plugin::converter::to_time_t_64(time) < firstOfFiletime) {
        refuse(value, "normalizeSignedAttributes");
    }
    return encodeTime(time);
}

std::string signingTimeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    if (gmtime_r(&now, &utc) == nullptr) {
        throw std::runtime_error("could not convert calendar time to UTC time");
    }
    return encodeTime(boost::posix_time::ptime_from_tm(utc));
}

std::string encodeValue(const SignedAttribute& attribute) {
    switch (attribute.type) {
    case Tag::octetString:
        return encodeOctetString(hex::decode(attribute.value));
    case Tag::utf8String:
        return encodeString(plugin::converter::utf8_to_utf16(attribute.value));
    case Tag::integer:
        return encodeInteger(static_cast<unsigned int>(boost::lexical_cast<int>(attribute.value)));
    default:
        return attribute.value;
    }
}

/// A service's refusal is its own; anything else says that the text does not fit its type.
void encode(SignedAttribute& attribute) {
    try {
        attribute.value = encodeValue(attribute);
    } catch (const exception::Exception&) {
        throw;
    } catch (const std::exception&) {
        refuse(attribute.value, "operator()<orvik::plugin::crypto::format::SignedAttribute>");
    }
}

} // namespace
} // namespace internal

std::vector<crypto::format::SignedAttribute>
normalizeSignedAttributes(const std::vector<crypto::format::SignedAttribute>& in) {
    auto result = in;
    const auto found =
        std::find_if(result.begin(), result.end(), [](const auto& row) { return row.oid == oid::signingTime; });
    if (found != result.end()) {
        found->value = internal::signingTime(found->value);
    } else {
        result.push_back({internal::Tag::utcTime, oid::signingTime, internal::signingTimeNow()});
    }
    std::for_each(result.begin(), result.end(), internal::encode);
    return result;
}

} // namespace orvik::plugin::wincrypt::tools
