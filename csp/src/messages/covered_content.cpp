#include "messages/covered_content.hpp"

#include "core/error.hpp"

namespace klunortredi::csp {

CoveredContent::CoveredContent(bool detached, std::optional<StreamOutput> stream)
    : detached_(detached), output_(stream) {}

void CoveredContent::hashWith(std::string_view oid) {
    embedded_.add(oid);
    if (detached_) {
        beside_.add(oid);
    }
}

void CoveredContent::embedded(ByteView piece) {
    embedded_.update(piece);
    if (!detached_ || !output_.streams()) {
        output_.add(piece);
    }
}

void CoveredContent::messageEnds(bool hasContent) {
    hasContent_ = hasContent;
    embedded_.finish();
    if (!detached_) {
        output_.add({}, true);
    }
    stage_ = detached_ ? Stage::Beside : Stage::Read;
}

void CoveredContent::beside(ByteView piece, bool final) {
    if (stage_ != Stage::Beside) {
        fail(capi::CRYPT_E_MSG_ERROR);
    }
    fed_ = true;
    beside_.update(piece);
    if (final) {
        beside_.finish();
        stage_ = Stage::Read;
    }
}

void CoveredContent::endUnfed() {
    if (stage_ == Stage::Beside && !fed_) {
        beside({}, true);
    }
}

const ContentHasher& CoveredContent::hashes() const {
    if (stage_ != Stage::Read || (!detached_ && !hasContent_)) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
    if (!detached_) {
        return embedded_;
    }
    // A message that brings content of its own vouches for no other.
    if (hasContent_ && !(embedded_ == beside_)) {
        fail(capi::CRYPT_E_HASH_VALUE);
    }
    return beside_;
}

} // namespace klunortredi::csp
