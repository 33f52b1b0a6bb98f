#include "orvik/plugin/session.hpp"

namespace orvik::plugin {

const Session& Session::instance() {
    static const Session session;
    return session;
}

} // namespace orvik::plugin
