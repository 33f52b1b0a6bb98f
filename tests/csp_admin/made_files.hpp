#pragma once

/// Key files that openssl's commands do not make.

#include <cstdint>
#include <string>
#include <vector>

namespace admin_test {

/// DER of an encrypted private key (PBES2) whose password is never found: what is derived from one takes `iterations`.
std::string encryptedKeyOf(long iterations);

/// The same with scrypt of these parameters (RFC 7914).
std::string scryptKeyOf(std::uint64_t cost, std::uint64_t blockSize, std::uint64_t parallelism);

/// PEM of an encrypted private key's DER.
std::string pemOfEncryptedKey(const std::string& der);

/// A PKCS#12 file without a MAC, of `count` encrypted keys that ask for that many iterations each: in
/// the open, or encrypted all together under `password` with few iterations.
std::string pfxOfSlowKeys(int count, long iterations, const char* password);

/// A PKCS#12 file without keys whose MAC asks for that many iterations; its value is wrong.
std::string pfxWithSlowMac(long iterations);

/// A PKCS#12 file of keys and their certificates (PEM), with one identifier on them all.
std::string pfxWithOneId(const std::vector<std::string>& keys, const std::vector<std::string>& certificates,
                         const char* password);

} // namespace admin_test
