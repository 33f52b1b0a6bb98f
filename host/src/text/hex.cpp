#include "orvik/plugin/hex.hpp"

#include <boost/algorithm/hex.hpp>

#include <iterator>

namespace orvik::plugin::hex {

std::string encode(boost::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    boost::algorithm::hex_lower(bytes.begin(), bytes.end(), std::back_inserter(out));
    return out;
}

std::string decode(boost::string_view text) {
    std::string out;
    out.reserve(text.size() / 2);
    boost::algorithm::unhex(text.begin(), text.end(), std::back_inserter(out));
    return out;
}

} // namespace orvik::plugin::hex
