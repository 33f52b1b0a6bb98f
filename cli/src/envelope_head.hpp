#pragma once

/// What an enveloped message says before its ciphertext: for whom, and with which cipher.

#include "certificates.hpp"
#include "crypto/wincrypt/tools_recipients.hpp"

#include <istream>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct EnvelopeHead {
    std::string octets; ///< what was read; the decryption begins with them
    std::vector<orvik::plugin::wincrypt::tools::RecipientName> recipients;
    std::string cipherOid; ///< empty when the service does not report it
};

/// Reads until the recipients are known. `name` is the input's. Throws Failure (exit 3) for what is not an enveloped
/// message, or ends before its ciphertext.
EnvelopeHead readEnvelopeHead(std::istream& message, const std::string& name);

/// "CN=Issuer, serial 1a2b", or the key identifier.
std::string titleOf(const orvik::plugin::wincrypt::tools::RecipientName& recipient);

/// The certificate among `own` that the message is for: the one that `which` means, else the first with a key
/// container. Throws Failure (exit 4), naming the recipients, when there is none.
CertificatePtr findOwnRecipient(const EnvelopeHead& head, const std::vector<CertificatePtr>& own,
                                const std::string& which, const std::string& name);

} // namespace klunortredi::cli
