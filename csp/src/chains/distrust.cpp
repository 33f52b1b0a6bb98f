#include "chains/distrust.hpp"

#include "core/warning.hpp"
#include "stores/system_store.hpp"
#include "x509/compare_keys.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// The same key, also where its parameters or its point are written in another way.
bool sameKey(const Certificate& left, const X509* leftX509, const Certificate& right, const X509* rightX509) {
    const ossl::ErrorMark mark;
    if (samePublicKey(left.info().SubjectPublicKeyInfo, right.info().SubjectPublicKeyInfo)) {
        return true;
    }
    const EVP_PKEY* const a = X509_get0_pubkey(leftX509);
    const EVP_PKEY* const b = X509_get0_pubkey(rightX509);
    return a != nullptr && b != nullptr && EVP_PKEY_eq(a, b) == 1;
}

} // namespace

Distrust::Distrust() {
    const auto store = SystemStore::open("disallowed");
    for (auto& certificate : store->certificates()) {
        auto x509 = ossl::fromDer<ossl::X509Ptr>(d2i_X509, certificate->encoded());
        if (!x509) {
            fail(capi::ERROR_INVALID_DATA);
        }
        entries_.push_back({std::move(certificate), std::move(x509)});
    }
    for (const std::string& name : store->unreadable()) {
        warn("an entry of store \"disallowed\" cannot be read, so no chain can be judged: " + name);
        fail(capi::ERROR_INVALID_DATA);
    }
}

bool Distrust::holds(const Certificate& certificate, const X509* x509) const {
    return std::ranges::any_of(entries_, [&](const Entry& entry) {
        return entry.certificate->thumbprint() == certificate.thumbprint() ||
               X509_issuer_and_serial_cmp(entry.x509.get(), x509) == 0 ||
               sameKey(*entry.certificate, entry.x509.get(), certificate, x509);
    });
}

} // namespace klunortredi::csp
