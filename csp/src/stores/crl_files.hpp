#pragma once

/// The CRLs in a store's folder: any file `*.crl`, DER or PEM. Those added here are `<key>.crl`, where the key is a
/// SHA-256 of what makes one CRL the successor of another: issuer, the public key that signed it, authority key
/// identifier, scope, base or delta. A CRL whose signature nobody checked is `unverified-<SHA-256 of the CRL>.crl`, so
/// that it takes the place of no other.

#include "core/bytes.hpp"
#include "stores/store.hpp"

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// A national authority's largest lists have some ten million octets; a file above this is left out with a warning.
inline constexpr std::size_t largestCrl = 64U << 20U;
inline constexpr std::string_view crlFileSuffix = ".crl";

/// Paths of the folder's CRL files, in order of their names. A folder that is not there has none. ApiError when it
/// cannot be read.
std::vector<std::filesystem::path> crlFiles(const std::filesystem::path& directory);

/// DER of the CRL in a file, not decoded. Nullopt when it is gone; also when it may not be read, is too large or is not
/// a CRL: then it is named as skipped (core/skipped.hpp). ApiError when the disk fails or descriptors run out: without
/// the list, a revoked certificate would pass.
std::optional<Bytes> readCrlFile(const std::filesystem::path& file);

/// What a CRL says of itself.
struct CrlSummary {
    std::string file;   ///< name within the folder; empty when it is in none
    std::string issuer; ///< UTF-8, RFC 2253
    std::time_t thisUpdate = 0;
    std::optional<std::time_t> nextUpdate;
    Bytes number; ///< CRL number, most significant octet first; empty when absent
    bool delta = false;
    bool indirect = false; ///< it may list certificates of other issuers (RFC 5280, 5.2.5)
    std::size_t entries = 0;
};

/// The summary of DER or PEM `contents`. ApiError(ERROR_INVALID_DATA) when they are too large, CRYPT_E_ASN1_CORRUPT
/// when they are not exactly one CRL.
CrlSummary summarizeCrl(ByteView contents);

/// Stores a CRL durably (a file as a whole, under the folder's lock) in the place of an older one of the same issuer,
/// key and scope; returns the summary with the file's name. `signerKey` is the DER of the SubjectPublicKeyInfo whose
/// signature the caller has verified; empty when there is none, and then the CRL is kept beside all others. Errors as
/// of `summarizeCrl`; CRYPT_E_EXISTS when the one in its place is as new or newer.
CrlSummary addCrl(const std::filesystem::path& directory, ByteView contents, ByteView signerKey);

struct CrlList {
    std::vector<CrlSummary> crls;        ///< by file name
    std::vector<UnusableEntry> unusable; ///< CRL files that are not among them
};

/// The folder's CRLs. ApiError when the folder cannot be listed.
CrlList listCrls(const std::filesystem::path& directory);

/// Deletes a file that `listCrls` names. ApiError(CRYPT_E_NOT_FOUND) when there is no CRL file of that name.
void deleteCrl(const std::filesystem::path& directory, const std::string& file);

} // namespace klunortredi::csp
