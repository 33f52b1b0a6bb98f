#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {

class ICertificate;

namespace cadest {

/// What a time-stamp token (RFC 3161, 2.4.2) states, and whether that holds for the octets it was judged against.
struct ORVIK_EXPORT TimestampVerdict {
    enum class Result : std::uint8_t {
        valid,   ///< the token is for these octets, its signatures hold, and its certificate may sign time-stamps
        invalid, ///< judged, and not so
        unknown, ///< could not be judged: certificate missing, algorithm unknown or not offered, the service failed
    };
    Result result = Result::unknown;
    std::string reason;                        ///< in English; why it is not valid, empty when it is
    boost::posix_time::ptime time;             ///< genTime, UTC; not set when the token cannot be read
    std::string policy;                        ///< OID
    std::string serialNumber;                  ///< hexadecimal, most significant octet first
    std::string imprintAlgorithm;              ///< OID
    std::string digestAlgorithm;               ///< OID, of the token's first signer
    boost::shared_ptr<ICertificate> authority; ///< whose key signed the token; null when its certificate is missing
    std::vector<std::string> certificates;     ///< DER, all that the token carries
    std::vector<std::string> crls;             ///< DER
};

/// The back-end's part of time-stamping (RFC 3161): what goes to the authority and what becomes of its response. The
/// framework's transformers carry the octets between it and the authority. Methods may be called from any thread.
///
/// `nonce` is random, fresh for each request, and must be echoed by the response. Its first and its last octet are
/// between 0x01 and 0x7F, so that it is a positive INTEGER of the same length in either order of octets.
class ORVIK_EXPORT TimestampTools {
public:
    TimestampTools() = default;
    TimestampTools(const TimestampTools&) = delete;
    TimestampTools& operator=(const TimestampTools&) = delete;
    virtual ~TimestampTools();

    /// DER TimeStampReq over the signature value of the first signer of a CMS signature.
    [[nodiscard]] virtual std::string makeRequest(boost::string_view signature, boost::string_view nonce) const = 0;
    /// The signature with the token of the response as an unsigned attribute of the first signer. Throws
    /// ApplicationException timestampRefused, timestampMissing or timestampInvalid for a response that is not
    /// acceptable.
    [[nodiscard]] virtual std::string embed(boost::string_view signature, boost::string_view response,
                                            boost::string_view nonce) const = 0;

    /// DER TimeStampReq over `octets`, hashed by the algorithm of the OID.
    [[nodiscard]] virtual std::string makeRequestFor(boost::string_view octets, const std::string& digestOid,
                                                     boost::string_view nonce) const = 0;
    /// The token of a response to such a request: one DER or BER ContentInfo, checked as `embed` checks it and with the
    /// same errors.
    [[nodiscard]] virtual std::string tokenFor(boost::string_view octets, const std::string& digestOid,
                                               boost::string_view response, boost::string_view nonce) const = 0;
    /// Judges a token that came with a signature against the octets that it should be for. The chain of the authority's
    /// certificate is not judged, nor whether the time is plausible. Never throws but for lack of memory.
    [[nodiscard]] virtual TimestampVerdict judge(boost::string_view token, boost::string_view octets) const = 0;

    /// Installs the back-end's implementation for the process; null takes it away.
    static void install(boost::shared_ptr<const TimestampTools> tools);
    /// Null when no back-end has installed one.
    static boost::shared_ptr<const TimestampTools> installed();
};

} // namespace cadest
} // namespace orvik::plugin::crypto
