#pragma once

#include <stdexcept>
#include <string>

namespace klunortredi::net {

/// Why a request has no answer that can be used.
enum class ErrorKind {
    library,   ///< libcurl is missing or too old
    request,   ///< the URL or a header of the request is not acceptable
    address,   ///< the address is not public and not allowed
    resolve,   ///< the name of the host has no address
    connect,   ///< no address of the host answers
    timeout,   ///< a time limit ended the exchange
    tls,       ///< no secure connection, or the certificate of the server is not trusted
    status,    ///< the HTTP status is not 200
    mediaType, ///< the media type is not one of those that the request accepts
    tooLarge,  ///< the answer or its header is larger than its limit
    redirect,  ///< too many redirects, or one that is not allowed
    cutOff,    ///< the connection ended before the answer
    protocol,  ///< anything else that is not proper HTTP
};

/// A request that failed. what() is one sentence without a full stop: the URL, and what is wrong with it, printable
/// ASCII only.
class NetworkError : public std::runtime_error {
public:
    /// `reason` without the URL. Octets that are not printable ASCII are replaced, long texts are cut.
    NetworkError(ErrorKind kind, const std::string& url, const std::string& reason, long httpStatus = 0,
                 const std::string& mediaType = {});

    [[nodiscard]] ErrorKind kind() const noexcept { return kind_; }
    /// Of the last redirect, where one was followed.
    [[nodiscard]] const std::string& url() const noexcept { return url_; }
    /// 0 when there is none.
    [[nodiscard]] long httpStatus() const noexcept { return httpStatus_; }
    /// As the server sends it; empty when there is none.
    [[nodiscard]] const std::string& mediaType() const noexcept { return mediaType_; }
    /// what() without the URL.
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }

private:
    ErrorKind kind_;
    std::string url_;
    std::string reason_;
    long httpStatus_;
    std::string mediaType_;
};

/// The text with each octet that is not printable ASCII replaced by a question mark, cut after `limit` characters.
std::string printable(const std::string& text, std::size_t limit);

} // namespace klunortredi::net
