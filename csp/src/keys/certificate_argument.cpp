#include "keys/certificate_argument.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"

namespace klunortredi::csp {

namespace {

constexpr std::size_t largest = 102400; // what readers of certificate properties accept
constexpr std::uint8_t longForm = 0x80;

} // namespace

ByteView certificateArgument(const std::uint8_t* data) {
    if (data[0] != der::tag::Sequence) {
        fail(capi::NTE_BAD_DATA);
    }
    if (data[1] < longForm) {
        return {data, 2U + data[1]};
    }
    const std::size_t octets = data[1] - std::size_t{longForm};
    if (octets == 0 || octets > sizeof(std::uint32_t)) {
        fail(capi::NTE_BAD_DATA);
    }
    std::size_t length = 0;
    for (std::size_t i = 0; i < octets; ++i) {
        length = (length << 8U) | data[2 + i];
    }
    if (length > largest) {
        fail(capi::NTE_BAD_DATA);
    }
    return {data, 2 + octets + length};
}

} // namespace klunortredi::csp
