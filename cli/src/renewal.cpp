#include "renewal.hpp"

#include "capi/types.h"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace klunortredi::cli {

namespace {

/// Extensions that say who holds the key and what for; the others are the authority's, or belong to one certificate.
constexpr std::array<std::string_view, 5> kept{"2.5.29.15", "2.5.29.32", "2.5.29.37", "2.5.29.17", "1.2.643.100.114"};

std::string octets(const CRYPTOAPI_BLOB& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

} // namespace

CertificatePtr certificateFor(const Container& container) {
    const std::wstring path = text::wide(container.path);
    if (auto certificate = container.provider->certificate(path)) {
        return certificate;
    }
    const auto key =
        orvik::plugin::wincrypt::Provider(container.provider->type(), container.provider->name(), path).publicKey();
    CertificatePtr latest;
    for (const CertificatePtr& certificate : key ? storeCertificates("my") : std::vector<CertificatePtr>{}) {
        const auto own = certificate->publicKey();
        if (own && own->key() == key->key() && (!latest || latest->notAfter() < certificate->notAfter())) {
            latest = certificate;
        }
    }
    return latest;
}

void keepNames(orvik::plugin::crypto::CsrCreatorParams& params, const CertificatePtr& certificate) {
    const CERT_INFO& info = *orvik::plugin::wincrypt::tools::toPCCERT_CONTEXT(certificate->context())->pCertInfo;
    params.encodedSubject = octets(info.Subject);
    for (DWORD i = 0; i < info.cExtension; ++i) {
        const CERT_EXTENSION& extension = info.rgExtension[i];
        if (std::ranges::find(kept, std::string_view(extension.pszObjId)) != kept.end()) {
            params.keptExtensions.emplace_back(extension.pszObjId, octets(extension.Value));
        }
    }
}

} // namespace klunortredi::cli
