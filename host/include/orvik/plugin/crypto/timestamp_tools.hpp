#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::crypto::cadest {

/// The back-end's part of time-stamping (RFC 3161): what goes to the authority and what becomes of its answer. The
/// framework's transformers carry the octets between it and the authority. Methods may be called from any thread.
class ORVIK_EXPORT TimestampTools {
public:
    TimestampTools() = default;
    TimestampTools(const TimestampTools&) = delete;
    TimestampTools& operator=(const TimestampTools&) = delete;
    virtual ~TimestampTools();

    /// DER TimeStampReq over the signature value of the first signer of a CMS signature.
    [[nodiscard]] virtual std::string makeRequest(boost::string_view signature, boost::string_view nonce) const = 0;
    /// The signature with the token of the response as an unsigned attribute of the first signer. Throws
    /// ApplicationException timestampRefused, timestampMissing or timestampInvalid for a response that does not do.
    [[nodiscard]] virtual std::string embed(boost::string_view signature, boost::string_view response,
                                            boost::string_view nonce) const = 0;

    /// Installs the back-end's implementation for the process; null takes it away.
    static void install(boost::shared_ptr<const TimestampTools> tools);
    /// Null when no back-end has installed one.
    static boost::shared_ptr<const TimestampTools> installed();
};

} // namespace orvik::plugin::crypto::cadest
