#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/timestamp_tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "transport.hpp"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>

namespace orvik::plugin::ssl::cadest {

namespace {

using crypto::cadest::TimestampTools;
using crypto::exception::CryptoException;
using plugin::exception::ApplicationException;
using plugin::exception::Message_;

boost::shared_ptr<const TimestampTools> requireTools() {
    auto tools = TimestampTools::installed();
    if (!tools) {
        plugin::exception::raise(CryptoException(CryptoException::Code::algorithmUnsupported)
                                     << Message_("the cryptographic back-end offers no time-stamps"),
                                 {"transformers", "finalizeImpl"});
    }
    return tools;
}

void requireInput(bool present, const char* message) {
    if (!present) {
        plugin::exception::raise(ApplicationException(ApplicationException::Code::emptyInput) << Message_(message),
                                 {"transformers", "finalizeImpl"});
    }
}

/// Sixty-odd random bits, a positive number read from either end.
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

void append(std::string& target, const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (data != nullptr) {
        target.append(reinterpret_cast<const char*>(data), size);
    }
    if (consumed != nullptr) {
        *consumed = size;
    }
}

} // namespace

namespace binary {

Transformer::~Transformer() = default;

bool Transformer::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    append(signature_, data, size, consumed);
    return true;
}

bool Transformer::finalizeImpl(std::vector<unsigned char>& out) {
    const auto tools = requireTools();
    requireInput(!authority().empty(), "no address of a time-stamp authority is given");
    requireInput(!signature_.empty(), "there is no signature to put a time-stamp on");
    const std::string nonce = newNonce();
    const std::string response = internal::exchangeTimestamp(authority(), tools->makeRequest(signature_, nonce));
    const std::string stamped = tools->embed(signature_, response, nonce);
    out.assign(stamped.begin(), stamped.end());
    signature_.clear();
    return true;
}

} // namespace binary

namespace xmldsig {

Transformer::~Transformer() = default;

bool Transformer::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    append(document_, data, size, consumed);
    return true;
}

bool Transformer::finalizeImpl(std::vector<unsigned char>& /*out*/) {
    plugin::exception::raise(CryptoException(CryptoException::Code::algorithmUnsupported)
                                 << Message_("time-stamps on XML signatures are not offered"),
                             {"transformers", "finalizeImpl"});
}

} // namespace xmldsig

} // namespace orvik::plugin::ssl::cadest
