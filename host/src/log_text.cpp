#include "orvik/plugin/log.hpp"

#include <iomanip>
#include <sstream>

namespace orvik::plugin::log {

std::string quoted(std::string_view text) {
    std::ostringstream out;
    out << std::quoted(text);
    return out.str();
}

} // namespace orvik::plugin::log
