#include "revocation_info.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using Status = Revocation::Status;

constexpr std::string_view reasonCode = "2.5.29.21";

/// CRLReason (RFC 5280, 5.3.1) by number; 7 is not used.
constexpr std::array reasons{"unspecified",
                             "the key is compromised",
                             "the authority's key is compromised",
                             "the holder's affiliation changed",
                             "superseded",
                             "the holder ceased operation",
                             "on hold",
                             "",
                             "removed from the list",
                             "the privilege was withdrawn",
                             "the attribute authority's key is compromised"};

/// Those that say nothing against the key: unspecified, affiliation changed, superseded, ceased operation.
constexpr std::array<std::size_t, 4> harmless{0, 3, 4, 5};

/// The reason of a list's entry: an extension with an ENUMERATED. Nothing without one, or for one that is not known.
std::optional<std::size_t> reasonOf(const CRL_ENTRY& entry) {
    for (const CERT_EXTENSION& extension : std::span(entry.rgExtension, entry.cExtension)) {
        const std::span value(extension.Value.pbData, extension.Value.cbData);
        const bool enumerated = value.size() == 3 && value[0] == 0x0A && value[1] == 1;
        if (extension.pszObjId == reasonCode && enumerated && value[2] < reasons.size()) {
            return value[2];
        }
    }
    return std::nullopt;
}

/// The entry by which the certificate is revoked; null when the service does not show it.
const CRL_ENTRY* entryOf(const CERT_REVOCATION_INFO* info) {
    return info == nullptr || info->pCrlInfo == nullptr ? nullptr : info->pCrlInfo->pCrlEntry;
}

} // namespace

Revocation readRevocation(const CERT_CHAIN_ELEMENT& element) {
    const std::uint32_t bits = element.TrustStatus.dwErrorStatus;
    const CERT_REVOCATION_INFO* const info = element.pRevocationInfo;
    const bool revoked = (bits & capi::CERT_TRUST_IS_REVOKED) != 0 ||
                         (info != nullptr && info->dwRevocationResult == capi::CRYPT_E_REVOKED);
    if (revoked) {
        const CRL_ENTRY* const entry = entryOf(info);
        const auto reason = entry == nullptr ? std::nullopt : reasonOf(*entry);
        return {Status::revoked,
                entry == nullptr ? std::string{} : text::time(wincrypt::converter::to_ptime(entry->RevocationDate)),
                reason ? reasons.at(*reason) : "", !reason || std::ranges::find(harmless, *reason) == harmless.end()};
    }
    const bool good = info != nullptr && info->dwRevocationResult == capi::ERROR_SUCCESS &&
                      (bits & capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN) == 0;
    return {good ? Status::good : Status::unknown, {}, {}, false};
}

} // namespace klunortredi::cli
