#pragma once

/// The digests and signature algorithms that XML signatures are verified with.

#include "ossl/owners.hpp"

#include <openssl/evp.h>

#include <string>
#include <string_view>

namespace orvik::plugin::xml::internal {

/// A digest by its URI in XML-DSig.
struct DigestAlgorithm {
    const char* uri;
    const char* oid;
    int nid; ///< OpenSSL's number
    bool gost;
};

enum class SignatureKind { rsa, rsaPss, dsa, ecdsa, gost };

/// A signature algorithm by its URI.
struct SignatureAlgorithm {
    const char* uri;
    SignatureKind kind;
    int digest; ///< OpenSSL's number
    int key;    ///< of the public key's algorithm
};

/// Null when the digest is not one that is computed here.
const DigestAlgorithm* digestAlgorithm(std::string_view uri) noexcept;

/// The digest by OpenSSL's number; it is in the table.
const DigestAlgorithm& digestAlgorithm(int nid) noexcept;

/// Null when the algorithm is not one that is verified here.
const SignatureAlgorithm* signatureAlgorithm(std::string_view uri) noexcept;

/// Whether the URI is that of a digest or signature algorithm that requires OpenSSL's GOST engine.
bool needsGostEngine(std::string_view uri) noexcept;

/// A running digest.
class Digest {
public:
    /// Throws std::runtime_error when OpenSSL does not offer the algorithm.
    explicit Digest(const DigestAlgorithm& algorithm);
    void update(std::string_view octets);
    /// The digest's value; the object is used up.
    std::string finish();

private:
    ssl::internal::Owned<EVP_MD_CTX, EVP_MD_CTX_free> context_;
};

/// Whether `value`, as it stands in a SignatureValue (RFC 9231: r and s side by side for DSA and ECDSA), is the
/// signature by `key` over what has that digest. False when the key is of another algorithm.
bool isSignature(const SignatureAlgorithm& algorithm, EVP_PKEY* key, const std::string& digest,
                 const std::string& value);

} // namespace orvik::plugin::xml::internal
