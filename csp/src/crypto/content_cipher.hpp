#pragma once

/// The ciphers of a message's content (RFC 5652, 6.3): one row each, streaming in both directions.

#include "core/bytes.hpp"
#include "core/secret.hpp"

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace klunortredi::csp {

/// Where the value that authenticates the content stands.
enum class Authentication {
    None,         ///< the content can be changed without notice: EnvelopedData (RFC 5652, 6)
    MacAttribute, ///< the unprotected attribute id-cms-mac-attr of an EnvelopedData (R 1323565.1.025-2019)
    AuthEnveloped ///< the mac of an AuthEnvelopedData (RFC 5083)
};

/// A content-encryption algorithm.
struct ContentAlgorithm {
    std::string_view oid;  ///< dotted
    std::string_view name; ///< lower case, for users: "aes-256-cbc", "kuznyechik-ctr-acpkm-omac"
    std::size_t keySize;   ///< octets of the content-encryption key
    std::size_t tagSize;   ///< octets of the authenticating value that is written; 0 for Authentication::None
    Authentication authentication;
    bool gost;
};

std::span<const ContentAlgorithm> contentAlgorithms() noexcept;
/// By dotted OID; null when unknown.
const ContentAlgorithm* findContentAlgorithm(std::string_view oid) noexcept;
/// By name; null when unknown.
const ContentAlgorithm* findContentAlgorithmByName(std::string_view name) noexcept;

/// id-cms-mac-attr: its one value is an OCTET STRING with the MAC of the plaintext, encrypted.
inline constexpr std::string_view macAttributeOid = "1.2.643.7.1.0.6.1.1";
/// id-tc26-gost-28147-param-Z: the parameter set that GOST 28147-89 is encrypted with unless another is named.
inline constexpr std::string_view gost28147ParamZ = "1.2.643.7.1.2.5.1.1";

/// New DER parameters of the algorithm, with a random initialisation vector or UKM. `gostParamSet`: dotted OID of the
/// S-boxes, for GOST 28147-89 only; empty for the default. Throws ApiError(NTE_BAD_ALGID) for an unknown set or one
/// that is not encrypted with.
Bytes newContentParameters(const ContentAlgorithm& algorithm, std::string_view gostParamSet = {});

/// Encrypts content. Not thread-safe; keys are wiped when it is destroyed.
class ContentEncryptor {
public:
    ContentEncryptor() = default;
    ContentEncryptor(const ContentEncryptor&) = delete;
    ContentEncryptor& operator=(const ContentEncryptor&) = delete;
    virtual ~ContentEncryptor() = default;

    /// Appends what can be given of the ciphertext of `plaintext` to `out`.
    virtual void update(ByteView plaintext, Bytes& out) = 0;
    /// Appends the rest (padding included). Call once; no update afterwards.
    virtual void finish(Bytes& out) = 0;
    /// After `finish`: the authenticating value, tagSize octets; empty for Authentication::None.
    [[nodiscard]] virtual Bytes tag() const = 0;
};

/// Decrypts content. Not thread-safe; keys are wiped when it is destroyed.
///
/// What `update` gives of an authenticated form must not leave the service before `finish` has returned.
class ContentDecryptor {
public:
    ContentDecryptor() = default;
    ContentDecryptor(const ContentDecryptor&) = delete;
    ContentDecryptor& operator=(const ContentDecryptor&) = delete;
    virtual ~ContentDecryptor() = default;

    /// For the second pass over ciphertext whose tag another decryptor has found right: call before the first update.
    /// The authenticating value need not be computed again.
    virtual void skipAuthentication() {}
    /// Appends what can be given of the plaintext of `ciphertext` to `out`.
    virtual void update(ByteView ciphertext, Bytes& out) = 0;
    /// Appends the rest. `tag`: the authenticating value of the message; empty for Authentication::None. Throws
    /// ApiError(NTE_BAD_DATA) when padding, length or tag are wrong: the message was changed, or the key is another.
    virtual void finish(ByteView tag, Bytes& out) = 0;
};

/// `parameters`: DER of the algorithm identifier's parameters. `key`: keySize octets. `attributes`: what is
/// authenticated beside the content (DER of the authenticated attributes as a SET OF; only for
/// Authentication::AuthEnveloped).
///
/// Throw ApiError: NTE_BAD_DATA for a key of another size, CRYPT_E_BAD_ENCODE for malformed parameters, NTE_BAD_ALGID
/// for parameters that are not supported.
std::unique_ptr<ContentEncryptor> contentEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                                   ByteView attributes = {});
std::unique_ptr<ContentDecryptor> contentDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                                   ByteView attributes = {});

} // namespace klunortredi::csp
