#pragma once

/// Pieces of log records that several components write alike.

#include "crypto/wincrypt/exceptions.hpp"
#include "lenient.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/optional.hpp>
#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::wincrypt {

/// A provider's or container's name as records show it; empty for one that is no Unicode, for a record about a failure
/// must not fail itself.
inline std::string quotedName(boost::wstring_view name) {
    return log::quoted(utf8OrEmpty(name));
}

inline std::string quotedContainer(const boost::optional<std::wstring>& container) {
    return quotedName(container ? boost::wstring_view(*container) : boost::wstring_view());
}

/// The service's text for the thread's last error; the number where it has none.
inline std::string lastErrorText() {
    return crypto::exception::SystemException().what();
}

} // namespace orvik::plugin::wincrypt
