#pragma once

#include "orvik/plugin/export.hpp"

#include <string>

namespace orvik::plugin {

/// Who makes a certificate request: the machine, the person's account and the program, all UTF-8 (MS-WCCE 2.2.2.7.4).
struct ORVIK_EXPORT UserAgent {
    UserAgent();

    std::string machine;
    std::string user;
    std::string process;
};

} // namespace orvik::plugin
