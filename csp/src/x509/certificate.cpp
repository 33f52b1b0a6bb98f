#include "x509/certificate.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "x509/blob.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace klunortredi::csp {

namespace {

Bytes sha1(ByteView data) {
    return Digest::of(*findDigest(capi::CALG_SHA1), data);
}

} // namespace

std::uint64_t Certificate::takeOrdinal() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

Certificate::Certificate(ByteView der, Properties properties, std::uint64_t ordinal)
    : info_(der), thumbprint_(sha1(der)), ordinal_(ordinal == 0 ? takeOrdinal() : ordinal),
      properties_(std::move(properties)) {}

Bytes Certificate::keyIdentifier() const {
    const CERT_EXTENSION* extension =
        findExtension(capi::szOID_SUBJECT_KEY_IDENTIFIER, info().cExtension, info().rgExtension);
    if (extension == nullptr) {
        return sha1(blobView(info().SubjectPublicKeyInfo.PublicKey));
    }
    const ByteView value = der::readOnly(blobView(extension->Value), der::tag::OctetString).content;
    return {value.begin(), value.end()};
}

Properties Certificate::properties() const {
    const std::lock_guard lock(mutex_);
    return properties_;
}

void Certificate::setProperties(Properties properties) {
    const std::lock_guard lock(mutex_);
    properties_ = std::move(properties);
}

void Certificate::changeProperties(const std::function<void(Properties&)>& change) {
    const std::lock_guard lock(mutex_);
    Properties changed = properties_;
    change(changed);
    properties_ = std::move(changed);
}

KeyHandle Certificate::keyHandle() const {
    const std::lock_guard lock(mutex_);
    return keyHandle_;
}

void Certificate::setKeyHandle(KeyHandle handle) {
    const std::lock_guard lock(mutex_);
    // Swapped, so that a handle let go is released after the lock.
    std::swap(keyHandle_, handle);
}

KeyHandle Certificate::offerKeyHandle(KeyHandle handle, bool (*usable)(unsigned long provider)) {
    const std::lock_guard lock(mutex_);
    if (keyHandle_.provider == 0 || !usable(keyHandle_.provider)) {
        std::swap(keyHandle_, handle); // let go after the lock, as above
    }
    return keyHandle_;
}

bool sameIssuerAndSerial(const CERT_INFO& a, const CERT_INFO& b) noexcept {
    const auto same = [](ByteView left, ByteView right) { return std::ranges::equal(left, right); };
    return same(blobView(a.Issuer), blobView(b.Issuer)) && same(blobView(a.SerialNumber), blobView(b.SerialNumber));
}

CERT_EXTENSION* findExtension(const char* oid, DWORD count, CERT_EXTENSION* extensions) noexcept {
    for (DWORD i = 0; extensions != nullptr && i < count; ++i) {
        if (extensions[i].pszObjId != nullptr && std::strcmp(extensions[i].pszObjId, oid) == 0) {
            return &extensions[i];
        }
    }
    return nullptr;
}

} // namespace klunortredi::csp
