#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "orvik/plugin/converter.hpp"

namespace orvik::plugin::wincrypt::converter {

namespace internal {
namespace {

constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::int64_t epochSeconds = 11'644'473'600; ///< from 1601-01-01 to 1970-01-01

} // namespace
} // namespace internal

boost::posix_time::ptime to_ptime(const FILETIME& time) {
    const auto ticks = (std::uint64_t{time.dwHighDateTime} << 32U) + time.dwLowDateTime;
    const std::time_t seconds = static_cast<std::int64_t>(ticks / internal::ticksPerSecond) - internal::epochSeconds;
    return plugin::converter::to_ptime(seconds);
}

std::int64_t to_filetime(const boost::posix_time::ptime& time) {
    return plugin::converter::to_time_t_64(time) * internal::ticksPerSecond +
           internal::epochSeconds * internal::ticksPerSecond;
}

} // namespace orvik::plugin::wincrypt::converter
