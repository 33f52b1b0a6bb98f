#include "authorities.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/timestamp_tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "transport.hpp"

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
    requireInput(!signature_.empty(), "there is no signature to put a time-stamp on");
    const std::string stamped =
        internal::fromFirstAuthority(authority(), [&](const std::string& address, const std::string& nonce) {
            const std::string request = tools->makeRequest(signature_, nonce);
            return tools->embed(signature_, internal::exchangeTimestamp(address, request), nonce);
        });
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
