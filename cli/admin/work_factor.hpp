#pragma once

/// How much work a file may ask for before its password is judged.

#include <openssl/x509.h>

#include <cstdint>
#include <string>

namespace klunortredi::admin {

/// Limit on the work of an import for deriving keys from passwords. A unit is an iteration of PBKDF2 or of PKCS#12's
/// own derivation, or what takes about as long.
class WorkBudget {
public:
    /// Refusals are cli::Failure (exit 3) with that message.
    explicit WorkBudget(std::string message) : message_(std::move(message)) {}

    /// Refuses work that is not left. Nothing is taken: for an estimate of all that is to come.
    void require(std::uint64_t work) const;
    /// To be called before each derivation.
    void take(std::uint64_t work);

private:
    std::string message_;
    std::uint64_t left_ = most;

    /// Makers write 2000 to 1,000,000 iterations, for the MAC, the certificates and each key, and an empty password may
    /// be tried first. This is ten seconds or so; a file that asks for more is not an ordinary key file.
    static constexpr std::uint64_t most = 20'000'000;
};

/// More than any budget: of a malformed or negative number.
inline constexpr std::uint64_t endlessWork = UINT64_MAX;

/// The work of that many iterations.
std::uint64_t workOf(const ASN1_INTEGER* iterations);

/// The work of an encryption with a password: PBES2 with PBKDF2 or scrypt (RFC 8018, 7914), PBES1 or PKCS#12's own (RFC
/// 7292). None for others and malformed ones, which OpenSSL refuses.
std::uint64_t workOf(const X509_ALGOR* encryption);

/// The algorithm of an encrypted private key; belongs to it.
const X509_ALGOR* encryptionOf(const X509_SIG* encrypted);

} // namespace klunortredi::admin
