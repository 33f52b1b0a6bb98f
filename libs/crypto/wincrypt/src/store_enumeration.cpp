#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/scoped_handle.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// A certificate context, given back whatever happens on the way.
class Context : public scoped_handle<void*> {
public:
    explicit Context(PCCERT_CONTEXT context)
        : scoped_handle([context](void*& held) { held = tools::fromPCCERT_CONTEXT(context); },
                        [](void*& held) { CertFreeCertificateContext(tools::toPCCERT_CONTEXT(held)); }) {}
};

boost::shared_ptr<Certificate> duplicate(const Context& context) {
    Context copy(CertDuplicateCertificateContext(tools::toPCCERT_CONTEXT(context.get())));
    if (!copy) {
        return nullptr;
    }
    auto certificate = boost::make_shared<Certificate>(copy.get());
    static_cast<void>(copy.detach()); // the certificate frees it from here on
    return certificate;
}

} // namespace
} // namespace internal

std::set<boost::shared_ptr<Certificate>> CertEnumCertificatesInStoreEx(boost::string_view storeName) {
    std::set<boost::shared_ptr<Certificate>> certificates;
    if (storeName.empty()) {
        return certificates;
    }
    const scoped_handle<void*> store(
        [&](void*& held) { held = CertOpenSystemStore(0, std::string(storeName).c_str()); },
        [](void*& held) { CertCloseStore(held, 0); });
    if (!store) {
        return certificates;
    }
    internal::Context current(nullptr);
    // The enumeration frees the context that it is given.
    while (const auto next = CertEnumCertificatesInStore(store.get(), tools::toPCCERT_CONTEXT(current.detach()))) {
        *current.put() = tools::fromPCCERT_CONTEXT(next);
        if (auto certificate = internal::duplicate(current)) {
            certificates.insert(std::move(certificate));
        }
    }
    return certificates;
}

} // namespace orvik::plugin::wincrypt
