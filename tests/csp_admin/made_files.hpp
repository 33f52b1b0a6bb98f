#pragma once

/// Key files that openssl's commands do not make.

#include <string>
#include <vector>

namespace admin_test {

/// DER of an encrypted private key (PBES2) whose password is never found: what is derived from one takes `iterations`.
std::string encryptedKeyOf(long iterations);

/// A PKCS#12 file of keys and their certificates (PEM), with one identifier on them all.
std::string pfxWithOneId(const std::vector<std::string>& keys, const std::vector<std::string>& certificates,
                         const char* password);

} // namespace admin_test
