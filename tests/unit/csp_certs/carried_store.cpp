#include "carried_store.hpp"

#include "asn1/der.hpp"
#include "capi/constants.hpp"
#include "exports/export.hpp"

namespace {

namespace api = klunortredi::csp::exports;
namespace der = klunortredi::csp::der;
using klunortredi::csp::Bytes;

Bytes joined(const std::vector<Bytes>& elements) {
    Bytes all;
    for (const Bytes& element : elements) {
        der::append(all, element);
    }
    return all;
}

/// A SignedData without signers (RFC 5652, 5.1), which only carries certificates and CRLs.
Bytes certificatesOnly(const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls) {
    const Bytes noElements = der::element(der::tag::Set, {});
    const Bytes data = der::sequence({der::objectIdentifier("1.2.840.113549.1.7.1")});
    const Bytes signedData = der::sequence({der::integer(1), noElements, data,
                                            der::element(der::tag::contextConstructed(0), joined(certificates)),
                                            der::element(der::tag::contextConstructed(1), joined(crls)), noElements});
    return der::sequence({der::objectIdentifier("1.2.840.113549.1.7.2"), der::explicitTag(0, signedData)});
}

} // namespace

void* openCarriedStore(const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls) {
    const Bytes message = certificatesOnly(certificates, crls);
    void* const handle = api::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    void* store = nullptr;
    if (api::CryptMsgUpdate(handle, message.data(), static_cast<DWORD>(message.size()), 1) != 0) {
        const auto provider = static_cast<unsigned long>(capi::CERT_STORE_PROV_MSG);
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): a number in a pointer
        store = api::CertOpenStore(reinterpret_cast<const char*>(provider), capi::X509_AND_PKCS_7, 0, 0, handle);
    }
    api::CryptMsgClose(handle);
    return store;
}
