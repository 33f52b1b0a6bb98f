#include "keys/provider_context.hpp"

#include "core/error.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"

namespace klunortredi::csp {

ProviderContext::ProviderContext(const ProviderRecord& provider, Container container)
    : provider_(provider), container_(std::move(container)) {}

ProviderContext::ProviderContext(const ProviderRecord& provider, std::unique_ptr<NewContainer> draft)
    : provider_(provider), draft_(std::move(draft)), made_(true) {}

const Container& ProviderContext::container() const {
    if (draft_) {
        return draft_->container();
    }
    if (!container_) {
        fail(capi::NTE_BAD_KEYSET);
    }
    return *container_;
}

Container& ProviderContext::container() {
    return const_cast<Container&>(std::as_const(*this).container()); // this object is not const here
}

const KeyEntry& ProviderContext::key(DWORD keySpec) const {
    if (!draft_ && !container_) {
        fail(capi::NTE_NO_KEY);
    }
    return container().key(keySpec);
}

ContainerId ProviderContext::containerId() const {
    const std::lock_guard lock(mutex_);
    return container().id();
}

void ProviderContext::addReference() {
    const std::lock_guard lock(mutex_);
    ++references_;
}

bool ProviderContext::removeReference() {
    const std::lock_guard lock(mutex_);
    return references_ > 0 && --references_ == 0;
}

void ProviderContext::requireAlive() const {
    const std::lock_guard lock(mutex_);
    if (references_ == 0) {
        fail(capi::NTE_BAD_UID);
    }
}

void ProviderContext::close() {
    const std::lock_guard lock(mutex_);
    draft_.reset();
}

Bytes ProviderContext::publicKeyInfo(DWORD keySpec) const {
    const std::lock_guard lock(mutex_);
    return key(keySpec).publicKeyInfo;
}

std::shared_ptr<EVP_PKEY> ProviderContext::privateKey(DWORD keySpec) {
    const std::lock_guard lock(mutex_);
    key(keySpec);
    return access_.key(container(), keySpec);
}

Bytes ProviderContext::sign(DWORD keySpec, const DigestAlgorithm& algorithm, ByteView digest, RsaScheme scheme) {
    return signDigest(privateKey(keySpec).get(), algorithm, digest, scheme);
}

SecretBytes ProviderContext::unwrap(DWORD keySpec, const WrappedKey& wrapped, std::size_t keySize) {
    const auto own = privateKey(keySpec);
    return std::visit([&](const auto& form) { return unwrapKey(own.get(), form, keySize); }, wrapped);
}

std::size_t ProviderContext::signatureSize(DWORD keySpec, const DigestAlgorithm& algorithm) {
    const std::lock_guard lock(mutex_);
    const KeyEntry& entry = key(keySpec);
    if (signatureOid(keyAlgorithm(provider_), algorithm).empty()) {
        fail(capi::NTE_BAD_ALGID);
    }
    const auto known = signatureSizes_.find(keySpec);
    if (known != signatureSizes_.end()) {
        return known->second;
    }
    const std::size_t size = csp::signatureSize(publicKeyFromInfo(entry.publicKeyInfo).get());
    signatureSizes_.emplace(keySpec, size);
    return size;
}

bool ProviderContext::exportable(DWORD keySpec) const {
    const std::lock_guard lock(mutex_);
    return key(keySpec).exportable;
}

std::optional<Bytes> ProviderContext::certificate(DWORD keySpec) const {
    const std::lock_guard lock(mutex_);
    key(keySpec);
    return container().certificate(keySpec);
}

void ProviderContext::setCertificate(DWORD keySpec, ByteView der) {
    const std::lock_guard lock(mutex_);
    key(keySpec);
    container().setCertificate(keySpec, der);
}

ossl::Pkey ProviderContext::makeKey(const KeyRequest& request) const {
    const KeyAlgorithm& algorithm = keyAlgorithm(provider_);
    if (!algorithm.gost) {
        return generateRsaKey(request.bits == 0 ? algorithm.defaultBits : request.bits);
    }
    if (request.bits != 0 && request.bits != algorithm.defaultBits) {
        fail(capi::NTE_BAD_LEN);
    }
    const auto chosen = parameters_.find(request.keySpec);
    const std::string_view standard =
        request.keySpec == capi::AT_SIGNATURE ? provider_.signatureSet : provider_.exchangeSet;
    return generateGostKey(algorithm,
                           *findGostParamSet(algorithm, chosen == parameters_.end() ? standard : chosen->second));
}

void ProviderContext::generateKey(const KeyRequest& request) {
    const std::lock_guard lock(mutex_);
    if (!draft_ && !container_) {
        fail(capi::NTE_PERM);
    }
    if (!container().keys().empty()) {
        access_.open(container());
    }
    std::shared_ptr<EVP_PKEY> made(makeKey(request));
    container().addKey(request.keySpec, made.get(), request.exportable, access_.pin());
    if (draft_) {
        container_ = draft_->commit();
        draft_.reset();
    }
    access_.keep(request.keySpec, std::move(made));
}

void ProviderContext::chooseParameters(DWORD keySpec, std::string_view oid) {
    const KeyAlgorithm& algorithm = keyAlgorithm(provider_);
    const std::lock_guard lock(mutex_);
    if (findKey(oid) == &algorithm) {
        parameters_.erase(keySpec);
        return;
    }
    const GostParamSet* const set = findGostParamSet(algorithm, oid);
    if (set == nullptr || !set->generate) {
        fail(capi::NTE_BAD_ALGID);
    }
    parameters_[keySpec] = oid;
}

void ProviderContext::presentPin(std::string_view pin) {
    const std::lock_guard lock(mutex_);
    access_.present(container(), pin);
}

void ProviderContext::verifyPin(std::string_view pin) {
    const std::lock_guard lock(mutex_);
    access_.verify(container(), pin);
}

void ProviderContext::setNewPin(std::string_view pin) {
    const std::lock_guard lock(mutex_);
    const bool hasKeys = !container().keys().empty();
    if (!made_) {
        fail(capi::NTE_BAD_FLAGS);
    }
    if (hasKeys) {
        access_.change(container(), pin);
    } else {
        access_.choose(pin);
    }
}

void ProviderContext::changePin(std::string_view pin) {
    const std::lock_guard lock(mutex_);
    access_.change(container(), pin);
}

DWORD ProviderContext::pinTriesRemaining() const {
    const std::lock_guard lock(mutex_);
    return container().triesRemaining();
}

} // namespace klunortredi::csp
