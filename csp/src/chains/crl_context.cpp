#include "chains/crl_context.hpp"

#include "capi/constants.hpp"
#include "x509/file_time.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// A FILETIME of 0 for a time that is absent or malformed.
FILETIME fileTime(const ASN1_TIME* time) {
    std::tm parts{};
    return time == nullptr || ASN1_TIME_to_tm(time, &parts) == 0 ? FILETIME{} : toFileTime(timegm(&parts));
}

/// The object identifier of "a CRL" as the kind of revocation information.
constexpr const char* revocationByCrl = "1.3.6.1.4.1.311.10.1.1";
/// id-ad-ocsp: the answer of a server (RFC 6960).
constexpr const char* revocationByOcsp = "1.3.6.1.5.5.7.48.1";
constexpr const char* reasonCode = "2.5.29.21";

} // namespace

CRYPTOAPI_BLOB RevocationLayout::blob(Bytes octets) {
    Bytes& kept = octets_.emplace_back(std::move(octets));
    return {static_cast<DWORD>(kept.size()), kept.empty() ? nullptr : kept.data()};
}

char* RevocationLayout::oid(const ASN1_OBJECT* object) {
    return texts_.emplace_back(ossl::oidText(object)).data();
}

CERT_EXTENSION* RevocationLayout::extensions(const STACK_OF(X509_EXTENSION) * list, DWORD& count) {
    std::vector<CERT_EXTENSION>& kept = extensions_.emplace_back();
    for (int i = 0; i < X509v3_get_ext_count(list); ++i) {
        X509_EXTENSION* const extension = X509v3_get_ext(list, i);
        const ByteView value = ossl::octets(X509_EXTENSION_get_data(extension));
        kept.push_back({oid(X509_EXTENSION_get_object(extension)), X509_EXTENSION_get_critical(extension) != 0 ? 1 : 0,
                        blob({value.begin(), value.end()})});
    }
    count = static_cast<DWORD>(kept.size());
    return kept.empty() ? nullptr : kept.data();
}

CRL_ENTRY* RevocationLayout::entry(const X509_REVOKED* revoked) {
    const ByteView serial = ossl::octets(X509_REVOKED_get0_serialNumber(revoked));
    CRL_ENTRY& entry = entries_.emplace_back();
    entry.SerialNumber = blob(Bytes(serial.rbegin(), serial.rend()));
    entry.RevocationDate = fileTime(X509_REVOKED_get0_revocationDate(revoked));
    entry.rgExtension = extensions(X509_REVOKED_get0_extensions(revoked), entry.cExtension);
    return &entry;
}

CRL_ENTRY* RevocationLayout::entry(const OcspAnswer& answer) {
    CRL_ENTRY& entry = entries_.emplace_back();
    entry.RevocationDate = toFileTime(answer.revoked);
    if (answer.reason >= 0) {
        std::vector<CERT_EXTENSION>& kept = extensions_.emplace_back();
        constexpr std::uint8_t enumerated = 0x0A;
        kept.push_back({texts_.emplace_back(reasonCode).data(), 0,
                        blob({enumerated, 1, static_cast<std::uint8_t>(answer.reason)})});
        entry.cExtension = 1;
        entry.rgExtension = kept.data();
    }
    return &entry;
}

PCCRL_CONTEXT RevocationLayout::context(const std::shared_ptr<X509_CRL>& crl) {
    if (!crl) {
        return nullptr;
    }
    const auto found = known_.find(crl.get());
    if (found != known_.end()) {
        return found->second;
    }
    const X509_ALGOR* algorithm = nullptr;
    X509_CRL_get0_signature(crl.get(), nullptr, &algorithm);
    CRL_INFO& info = infos_.emplace_back();
    info.dwVersion = static_cast<DWORD>(X509_CRL_get_version(crl.get()));
    info.SignatureAlgorithm.pszObjId = oid(algorithm->algorithm);
    if (algorithm->parameter != nullptr) {
        info.SignatureAlgorithm.Parameters = blob(ossl::toDer(i2d_ASN1_TYPE, algorithm->parameter));
    }
    info.Issuer = blob(ossl::toDer(i2d_X509_NAME, X509_CRL_get_issuer(crl.get())));
    info.ThisUpdate = fileTime(X509_CRL_get0_lastUpdate(crl.get()));
    info.NextUpdate = fileTime(X509_CRL_get0_nextUpdate(crl.get()));
    info.rgExtension = extensions(X509_CRL_get0_extensions(crl.get()), info.cExtension);
    const CRYPTOAPI_BLOB whole = blob(ossl::toDer(i2d_X509_CRL, crl.get()));
    const PCCRL_CONTEXT made =
        &contexts_.emplace_back(CRL_CONTEXT{capi::X509_ASN_ENCODING, whole.pbData, whole.cbData, &info, nullptr});
    known_.emplace(crl.get(), made);
    return made;
}

CERT_REVOCATION_INFO* RevocationLayout::add(const ElementRevocation& revocation) {
    CERT_REVOCATION_CRL_INFO& crl = crlInfos_.emplace_back();
    crl.cbSize = sizeof crl;
    crl.pBaseCrlContext = context(revocation.base);
    crl.pDeltaCrlContext = context(revocation.delta);
    crl.pCrlEntry = revocation.entry == nullptr ? nullptr : entry(revocation.entry);
    if (revocation.answer && revocation.answer->status == OcspAnswer::Status::Revoked) {
        crl.pCrlEntry = entry(*revocation.answer);
    }
    crl.fDeltaCrlEntry = revocation.entry != nullptr && revocation.entryOf == revocation.delta ? 1 : 0;
    CERT_REVOCATION_INFO& info = revocations_.emplace_back();
    info.cbSize = sizeof info;
    info.dwRevocationResult = revocation.result;
    info.pszRevocationOid = revocation.answer ? revocationByOcsp : revocationByCrl;
    info.fHasFreshnessTime = 1;
    info.dwFreshnessTime = revocation.freshness;
    info.pCrlInfo = &crl;
    return &info;
}

} // namespace klunortredi::csp
