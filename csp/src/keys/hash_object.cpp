#include "keys/hash_object.hpp"

#include "core/error.hpp"
#include "core/immortal.hpp"
#include "core/output.hpp"
#include "crypto/signature.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

const DigestAlgorithm& offered(const ProviderRecord& provider, ALG_ID id) {
    const DigestAlgorithm* const algorithm = findDigest(id);
    if (algorithm == nullptr || !offers(provider, *algorithm)) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *algorithm;
}

/// Between the order of X.509 and the CryptoAPI's, which writes RSA signatures as little-endian numbers.
Bytes reordered(ByteView signature, const KeyAlgorithm& key) {
    Bytes result(signature.begin(), signature.end());
    if (!key.gost) {
        std::ranges::reverse(result);
    }
    return result;
}

HandleTable<HashObject, HandleKind::Hash>& hashes() {
    // Never destroyed: what a host leaves open would be freed after OpenSSL has cleaned up at exit.
    static Immortal<HandleTable<HashObject, HandleKind::Hash>> table(capi::NTE_BAD_HASH);
    return *table;
}

} // namespace

HashObject::HashObject(std::shared_ptr<ProviderContext> context, ALG_ID algorithm)
    : context_(std::move(context)), digest_(offered(context_->provider(), algorithm)) {}

void HashObject::update(ByteView data) {
    context_->requireAlive();
    const std::lock_guard lock(mutex_);
    if (finished_) {
        fail(capi::NTE_BAD_HASH_STATE);
    }
    digest_.update(data);
}

/// The value so far. Of a copy, so that a caller whose buffer is short or whose key is locked can go on.
Bytes HashObject::value() const {
    return finished_ ? *finished_ : Digest(digest_).finish();
}

void HashObject::param(DWORD param, void* buffer, DWORD* size) {
    context_->requireAlive();
    const std::lock_guard lock(mutex_);
    switch (param) {
    case capi::HP_ALGID:
        return give(digest_.algorithm().id, buffer, size);
    case capi::HP_HASHSIZE:
        return give(static_cast<DWORD>(digest_.algorithm().size), buffer, size);
    case capi::HP_HASHVAL: {
        Bytes read = value();
        give(read, buffer, size);
        if (buffer != nullptr) {
            finished_ = std::move(read);
        }
        return;
    }
    default:
        fail(capi::NTE_BAD_TYPE);
    }
}

void HashObject::sign(DWORD keySpec, void* buffer, DWORD* size) {
    context_->requireAlive();
    const std::lock_guard lock(mutex_);
    const std::size_t needed = context_->signatureSize(keySpec, digest_.algorithm());
    if (!hasRoom(needed, buffer, size)) {
        return;
    }
    Bytes signedValue = value();
    const Bytes signature = context_->sign(keySpec, digest_.algorithm(), signedValue, RsaScheme::pkcs1);
    give(reordered(signature, keyAlgorithm(context_->provider())), buffer, size);
    finished_ = std::move(signedValue);
}

void HashObject::verify(ByteView signature, const KeyObject& key) {
    context_->requireAlive();
    const std::lock_guard lock(mutex_);
    const KeyAlgorithm& algorithm = keyAlgorithm(key.publicKey());
    if (signatureOid(algorithm, digest_.algorithm()).empty()) {
        fail(capi::NTE_BAD_ALGID);
    }
    Bytes checked = value();
    const bool valid = verifyDigest(key.publicKey(), digest_.algorithm(), checked, reordered(signature, algorithm));
    finished_ = std::move(checked);
    if (!valid) {
        fail(capi::NTE_BAD_SIGNATURE);
    }
}

unsigned long addHash(std::shared_ptr<HashObject> hash) {
    return hashes().add(std::move(hash));
}

std::shared_ptr<HashObject> hashObject(unsigned long hHash) {
    return hashes().get(hHash);
}

void destroyHash(unsigned long hHash) {
    hashes().remove(hHash);
}

} // namespace klunortredi::csp
