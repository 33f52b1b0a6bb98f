#include "messages/content_hasher.hpp"

#include "core/error.hpp"

#include <algorithm>

namespace klunortredi::csp {

void ContentHasher::add(std::string_view oid) {
    const DigestAlgorithm* const algorithm = findDigest(oid);
    const auto same = [&](const Hash& hash) { return &hash.digest.algorithm() == algorithm; };
    if (algorithm != nullptr && std::ranges::none_of(hashes_, same)) {
        hashes_.push_back({Digest(*algorithm), {}});
    }
}

void ContentHasher::update(ByteView piece) {
    for (Hash& hash : hashes_) {
        hash.digest.update(piece);
    }
}

void ContentHasher::finish() {
    for (Hash& hash : hashes_) {
        hash.value = hash.digest.finish();
    }
}

const Bytes& ContentHasher::value(std::string_view oid) const {
    const auto same = [&](const Hash& hash) { return hash.digest.algorithm().oid == oid; };
    const auto found = std::ranges::find_if(hashes_, same);
    if (found == hashes_.end()) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return found->value;
}

bool operator==(const ContentHasher& a, const ContentHasher& b) {
    return std::ranges::equal(a.hashes_, b.hashes_, [](const auto& left, const auto& right) {
        return &left.digest.algorithm() == &right.digest.algorithm() && left.value == right.value;
    });
}

} // namespace klunortredi::csp
