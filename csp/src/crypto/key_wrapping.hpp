#pragma once

/// How a content-encryption key reaches its recipient: key transport and key agreement (RFC 5652, 6.2.1 and 6.2.2).

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "core/secret.hpp"

#include <cstddef>
#include <string>
#include <variant>

namespace klunortredi::csp {

/// The variable fields of a KeyTransRecipientInfo.
struct TransportedKey {
    std::string oid;    ///< keyEncryptionAlgorithm, dotted
    Bytes parameters;   ///< DER of its parameters; empty when absent
    Bytes encryptedKey; ///< content of the OCTET STRING
};

/// The variable fields of a KeyAgreeRecipientInfo with an originator that is a public key.
struct AgreedKey {
    std::string oid;     ///< keyEncryptionAlgorithm, dotted
    Bytes parameters;    ///< DER of its parameters: the AlgorithmIdentifier of the key wrap
    Bytes originatorKey; ///< DER SEQUENCE of AlgorithmIdentifier and BIT STRING: a SubjectPublicKeyInfo
    Bytes ukm;           ///< content of the OCTET STRING; empty when absent
    Bytes encryptedKey;  ///< content of the recipient's OCTET STRING
};

using WrappedKey = std::variant<TransportedKey, AgreedKey>;

/// The key of `keySize` octets that `wrapped` transports to the holder of the private key `key`.
///
/// Understood: RSAES-PKCS1-v1_5 and RSAES-OAEP (RFC 8017, RFC 4055) for RSA keys; for GOST R 34.10-2001 and 2012 keys
/// the key transport of RFC 4490 (VKO and CryptoPro key wrap) and the Magma and Kuznyechik KExp15 forms of R
/// 1323565.1.025-2019.
///
/// Throws ApiError: NTE_BAD_ALGID for an algorithm that is unknown or of another kind of key, CRYPT_E_BAD_ENCODE for
/// malformed fields, NTE_BAD_PUBLIC_KEY for an ephemeral key of another curve or not on it, NTE_BAD_DATA when the
/// wrapped key is damaged or for another recipient.
///
/// RSAES-PKCS1-v1_5 never reports damage: it returns a key that depends on the private key and the ciphertext alone
/// (implicit rejection), in the same time, and the content does not decrypt with it. Otherwise the answers would be an
/// oracle that decrypts other messages (RFC 3218).
SecretBytes unwrapKey(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize);
/// The same for key agreement: GOST keys with CryptoPro key wrap, the plain GOST 28147-89 wrap (RFC 4357, 6; RFC 4490)
/// or KExp15.
SecretBytes unwrapKey(EVP_PKEY* key, const AgreedKey& wrapped, std::size_t keySize);

/// How a key is transported.
enum class TransportForm {
    RsaPkcs1,         ///< RSAES-PKCS1-v1_5
    RsaOaep,          ///< RSAES-OAEP with SHA-256, no label
    GostCryptoPro,    ///< RFC 4490: VKO, CryptoPro key wrap; S-boxes: A for 2001 keys, Z for 2012 keys
    KExp15Magma,      ///< R 1323565.1.025-2019; GOST R 34.10-2012 keys only
    KExp15Kuznyechik, ///< the same
};

/// How a key is agreed upon, with an ephemeral key of the originator.
enum class AgreementForm {
    GostCryptoPro,    ///< CryptoPro key wrap
    GostPlain,        ///< id-Gost28147-89-None-KeyWrap
    KExp15Magma,      ///< GOST R 34.10-2012 keys only
    KExp15Kuznyechik, ///< the same
};

/// Whom a key is wrapped for. Nothing is owned.
struct RecipientKey {
    EVP_PKEY* key;            ///< public
    ByteView parameters = {}; ///< DER of the parameters of its AlgorithmIdentifier, as its certificate has them
};

/// Wraps `contentKey` for the holder of the public key `recipient`. A GOST form has an ephemeral key: its parameters
/// are written as `recipient.parameters` are, or, when those are empty, as RFC 4491 and RFC 9215 require. Some readers
/// decode only what their own certificates contain.
///
/// Throws ApiError: NTE_BAD_ALGID for a form that is not one of the key's kind, or a key of a test curve; NTE_BAD_LEN
/// for a content key that the form cannot carry (GOST forms: 32 octets).
TransportedKey wrapKey(const RecipientKey& recipient, TransportForm form, ByteView contentKey);
AgreedKey wrapKey(const RecipientKey& recipient, AgreementForm form, ByteView contentKey);

} // namespace klunortredi::csp
