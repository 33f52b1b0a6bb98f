#include "authority.hpp"

#include "decoded.hpp"

#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <string_view>

namespace orvik::plugin::timestamp_glue {

namespace {

/// id-kp-timeStamping (RFC 5280, 4.2.1.12).
constexpr std::string_view timeStamping = "1.3.6.1.5.5.7.3.8";
/// digitalSignature and nonRepudiation, in the first octet of the bits.
constexpr unsigned signingUsages = 0xC0;

/// Whether the one usage is timeStamping, and critical.
bool stampsOnly(const CERT_INFO& info) {
    const auto* const extension =
        wincrypt::CertFindExtension(capi::szOID_ENHANCED_KEY_USAGE, info.cExtension, info.rgExtension);
    if (extension == nullptr || extension->fCritical == 0) {
        return false;
    }
    const Decoded<CERT_ENHKEY_USAGE> usage(capi::X509_ENHANCED_KEY_USAGE, view(extension->Value));
    return usage && usage->cUsageIdentifier == 1 && usage->rgpszUsageIdentifier[0] == timeStamping;
}

} // namespace

std::string refusalOf(const crypto::ICertificate& certificate, const boost::posix_time::ptime& time) {
    const PCCERT_CONTEXT context = wincrypt::tools::toPCCERT_CONTEXT(certificate.context());
    if (context == nullptr || !stampsOnly(*context->pCertInfo)) {
        return "its certificate is not for time-stamps: it needs a critical extended key usage with timeStamping alone";
    }
    const auto usage = certificate.keyUsage();
    if (usage && (*usage & signingUsages) == 0) {
        return "the key usage of its certificate does not allow signatures";
    }
    if (time.is_special() || time < certificate.notBefore() || time > certificate.notAfter()) {
        return "its time is outside the validity of its certificate";
    }
    const boost::posix_time::minutes clockSkew(5); // clocks of authorities that are ahead of this machine's
    if (time > boost::posix_time::second_clock::universal_time() + clockSkew) {
        return "its time is in the future";
    }
    return {};
}

} // namespace orvik::plugin::timestamp_glue
