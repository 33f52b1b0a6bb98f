#pragma once

/// Certificates as the command speaks of them.

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <nlohmann/json_fwd.hpp>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace klunortredi::cli {

using CertificatePtr = boost::shared_ptr<orvik::plugin::crypto::ICertificate>;

/// A certificate file, DER or PEM or Base64. Throws Failure (exit 3).
CertificatePtr readCertificate(const std::string& path);
CertificatePtr certificateFromDer(const std::string& der);

/// The certificates of a system store, ordered by subject and thumbprint.
std::vector<CertificatePtr> storeCertificates(const std::string& store);

/// The one certificate that `which` means: a thumbprint prefix or a serial number, with or without "0x", colons and
/// blanks, or a part of the subject (any case).
/// Throws Failure: none (exit 1), several (exit 2, naming them). The two functions after it are its halves.
CertificatePtr findCertificate(const std::vector<CertificatePtr>& among, const std::string& which,
                               const std::string& where);
std::vector<CertificatePtr> matchingCertificates(const std::vector<CertificatePtr>& among, const std::string& which,
                                                 const std::string& where);
CertificatePtr onlyCertificate(const std::vector<CertificatePtr>& found, const std::string& which);

/// The same among the certificates of a system store. A whole thumbprint means its certificate alone, and is found
/// without reading the others.
CertificatePtr findInStore(const std::string& store, const std::string& which);
std::vector<CertificatePtr> matchingInStore(const std::string& store, const std::string& which);

std::string subjectOf(const orvik::plugin::crypto::ICertificate& certificate);
/// The subject for a person to read: whoever made the certificate chose its characters.
std::string titleOf(const orvik::plugin::crypto::ICertificate& certificate);
std::string thumbprintOf(const orvik::plugin::crypto::ICertificate& certificate);
std::string serialOf(const orvik::plugin::crypto::ICertificate& certificate);
/// OIDs of its extended key usage (RFC 5280, 4.2.1.12), none when it has no such extension; nothing when the extension
/// is malformed or there twice.
std::optional<std::vector<std::string>> extendedUsageOf(const orvik::plugin::crypto::ICertificate& certificate);
/// The container's plain name, UTF-8; empty without a link.
std::string containerOf(const orvik::plugin::crypto::ICertificate& certificate);

nlohmann::ordered_json toJson(const orvik::plugin::crypto::ICertificate& certificate);
void print(std::ostream& out, const orvik::plugin::crypto::ICertificate& certificate);

} // namespace klunortredi::cli
