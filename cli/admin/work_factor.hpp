#pragma once

/// How much work a file may ask for before its password is judged.

#include <openssl/x509.h>

#include <string>

namespace klunortredi::admin {

/// Throws cli::Failure (exit 3, `message`) unless 1 to 10,000,000 iterations are asked for. Makers write 2000 to
/// 1,000,000; a file that asks for hours of work is no key file.
void checkIterations(long iterations, const std::string& message);

/// The same for an encryption with a password: PBES2 with PBKDF2 (RFC 8018), PBES1 or PKCS#12's own (RFC 7292). Others,
/// and malformed ones, are left to OpenSSL to refuse; it limits scrypt itself.
void checkIterations(const X509_ALGOR* encryption, const std::string& message);

/// The algorithm of an encrypted private key; belongs to it.
const X509_ALGOR* encryptionOf(const X509_SIG* encrypted);

} // namespace klunortredi::admin
