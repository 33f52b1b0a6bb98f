#pragma once

#include "orvik/plugin/export.hpp"

namespace orvik::plugin {

/// The application's session, passed to operations whose answer may depend on who asks.
class ORVIK_EXPORT Session {
public:
    static const Session& instance();

private:
    Session() = default;
};

} // namespace orvik::plugin
