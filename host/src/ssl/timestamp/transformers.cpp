#include "authorities.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "requirements.hpp"
#include "transport.hpp"

namespace orvik::plugin::ssl::cadest {

namespace {

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
    const auto tools = internal::requireTools();
    internal::requireInput(!signature_.empty(), "there is no signature to put a time-stamp on");
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

} // namespace orvik::plugin::ssl::cadest
