#pragma once

#include <string>
#include <thread>
#include <vector>

namespace host_test {

/// An HTTP server on this machine that gives prepared answers, one per connection, and keeps the requests.
class HttpAuthority {
public:
    /// `answers` are whole HTTP responses; the server ends after the last one.
    explicit HttpAuthority(std::vector<std::string> answers);
    HttpAuthority(const HttpAuthority&) = delete;
    HttpAuthority& operator=(const HttpAuthority&) = delete;
    ~HttpAuthority();

    [[nodiscard]] std::string url() const;
    /// Head and body of what came, in order. Waits for the last answer to be given.
    const std::vector<std::string>& requests();

private:
    void serve();

    std::vector<std::string> answers_;
    std::vector<std::string> requests_;
    int socket_ = -1;
    int port_ = 0;
    std::thread thread_;
};

/// An HTTP response with a body of that type.
std::string response(const std::string& body, const std::string& type = "application/timestamp-reply",
                     const std::string& status = "200 OK");

} // namespace host_test
