#include "messages/content_hasher.hpp"

#include "core/error.hpp"

#include <algorithm>

namespace klunortredi::csp {

void ContentHasher::add(std::string_view oid) {
    const DigestAlgorithm* const algorithm = findDigest(oid);
    const auto same = [&](const Hash& hash) { return &hash.digest.algorithm() == algorithm; };
    if (algorithm == nullptr || std::ranges::any_of(hashes_, same)) {
        return;
    }
    try {
        hashes_.push_back({Digest(*algorithm), {}});
    } catch (const ApiError& error) {
        missing_.push_back(
            {algorithm->oid, error.code() == capi::NTE_BAD_ALGID ? capi::CRYPT_E_UNKNOWN_ALGO : error.code()});
    }
}

void ContentHasher::update(ByteView piece) {
    shape_.update(piece);
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
        const auto missing = std::ranges::find(missing_, oid, &Missing::oid);
        fail(missing == missing_.end() ? capi::CRYPT_E_UNKNOWN_ALGO : missing->error);
    }
    return found->value;
}

bool operator==(const ContentHasher& a, const ContentHasher& b) {
    return std::ranges::equal(a.hashes_, b.hashes_, [](const auto& left, const auto& right) {
        return &left.digest.algorithm() == &right.digest.algorithm() && left.value == right.value;
    });
}

} // namespace klunortredi::csp
