#pragma once

/// What a certificate may be used for, and what the signer of a document must be allowed.

#include "capi/types.h"
#include "trust.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// The OID of a usage given by OID or by name (email, client-auth, server-auth, code-signing, time-stamping,
/// ocsp-signing, document-signing, any). Throws Failure (exit 2), naming `option`, for anything else.
std::string usageOid(const std::string& option, const std::string& usage);

/// The name of the usage with that OID, in words ("e-mail protection"); the OID when it has none.
std::string usageWords(const std::string& oid);

/// The usages that a query requires of the whole chain, as the service takes them: the one that the query names; for a
/// signer without a named usage any one of those that fit documents; nothing for `any` and for other queries.
class RequestedUsages {
public:
    explicit RequestedUsages(const ChainQuery& query);

    /// Points into this object.
    [[nodiscard]] CERT_USAGE_MATCH match() noexcept;

private:
    std::vector<std::string> oids_;
    std::vector<char*> pointers_;
    DWORD type_;
};

/// Why the certificate does not sign documents, or not with the usage that the query names: it is a CA certificate, its
/// key usage (RFC 5280, 4.2.1.3) has neither digitalSignature nor nonRepudiation, or its extended key usage (4.2.1.12)
/// names others only. Nothing when it does.
std::optional<Problem> signerProblem(const orvik::plugin::crypto::ICertificate& certificate, const ChainQuery& query);

} // namespace klunortredi::cli
