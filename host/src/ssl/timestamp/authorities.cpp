#include "authorities.hpp"

#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/exception/get_error_info.hpp>
#include <openssl/rand.h>

#include <array>
#include <sstream>
#include <stdexcept>

namespace orvik::plugin::ssl::internal {

namespace {

using plugin::exception::ApplicationException;
using plugin::exception::Message_;
using Code = ApplicationException::Code;

/// Sixty-odd random bits, a positive number of eight octets read from either end.
std::string newNonce() {
    std::array<unsigned char, 8> octets{};
    if (RAND_bytes(octets.data(), static_cast<int>(octets.size())) != 1) {
        throw std::runtime_error("no random numbers");
    }
    for (unsigned char* end : {&octets.front(), &octets.back()}) {
        *end = static_cast<unsigned char>((*end & 0x7FU) | 0x01U);
    }
    return {octets.begin(), octets.end()};
}

/// What went wrong, with the address in it.
std::string wordsOf(const ApplicationException& e, const std::string& address) {
    const auto* const message = boost::get_error_info<Message_>(e);
    const std::string words = message != nullptr ? *message : std::string("refused (") + e.error() + ")";
    return words.find(address) == std::string::npos ? "time-stamp authority " + address + ": " + words : words;
}

} // namespace

std::string fromFirstAuthority(const std::string& addresses, const Exchange& exchange) {
    std::istringstream list(addresses);
    std::string failures;
    auto code = Code::emptyInput;
    for (std::string address; list >> address;) {
        try {
            return exchange(address, newNonce());
        } catch (const ApplicationException& e) {
            failures += (failures.empty() ? "" : "; ") + wordsOf(e, address);
            code = static_cast<Code>(e.code().value());
            if (code == Code::cancelled || code == Code::emptyInput) {
                throw;
            }
        }
    }
    const std::string none = "no address of a time-stamp authority is given";
    plugin::exception::raise(ApplicationException(code) << Message_(failures.empty() ? none : failures),
                             {"transformers", "finalizeImpl"});
}

} // namespace orvik::plugin::ssl::internal
