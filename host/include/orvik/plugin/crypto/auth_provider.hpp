#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <functional>
#include <string>

namespace orvik::plugin::crypto {

class IAuthHandle;
class IPrivateKey;

/// The PIN dialogue.
class ORVIK_EXPORT AuthProvider {
public:
    /// Asked for a PIN: the handle tells the container and the failures so far. No value: the person cancels.
    using Dialog = std::function<boost::optional<std::string>(const IAuthHandle& handle, unsigned attempt)>;

    /// Installs the host application's dialogue; an empty one (the state at start) refuses every request.
    static void setDialog(Dialog dialog);

    /// Unlocks the key, unless it is authenticated already. `reason` is shown to the person. False when refused.
    static bool authorize(const boost::shared_ptr<IPrivateKey>& key, const std::string& reason);
    /// Logs in with `pin` when it is not empty, then with what the dialogue answers, until success, cancellation, or
    /// the handle reports itself locked or rejected. False when not logged in.
    static bool authorize(const boost::shared_ptr<IAuthHandle>& handle, const std::string& pin);
};

} // namespace orvik::plugin::crypto
