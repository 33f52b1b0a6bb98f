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
    /// Asked for a PIN: the handle tells the container; `attempt` is the number of PINs that this authorization has
    /// tried and seen refused (0 the first time, unless the caller's own PIN was wrong). No value: the person cancels.
    /// A dialogue that reads the PIN from a file or a variable cancels when `attempt` is not 0, lest it use up the
    /// container's tries.
    using Dialog = std::function<boost::optional<std::string>(const IAuthHandle& handle, unsigned attempt)>;

    /// Installs the host application's dialogue; an empty one (the state at start) refuses every request. Thread-safe.
    static void setDialog(Dialog dialog);

    /// Unlocks the key, unless it is authenticated already or needs no PIN. `reason` goes to the log. False when
    /// refused.
    static bool authorize(const boost::shared_ptr<IPrivateKey>& key, const std::string& reason);
    /// Logs in with `pin` when it is not empty, then with what the dialogue answers, until success, cancellation, the
    /// handle's number of attempts, or the handle reports itself locked or rejected. False when not logged in.
    static bool authorize(const boost::shared_ptr<IAuthHandle>& handle, const std::string& pin);
};

} // namespace orvik::plugin::crypto
