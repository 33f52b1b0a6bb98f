#include "crypto/key_wrapping.hpp"

#include "core/error.hpp"
#include "crypto/key_wrapping_rows.hpp"
#include "crypto/signature.hpp"

namespace klunortredi::csp {

namespace {

/// A GOST form carries 32 octets always; the content may ask for another size.
SecretBytes sized(SecretBytes key, std::size_t size) {
    if (key.size() != size) {
        fail(capi::NTE_BAD_DATA);
    }
    return key;
}

} // namespace

SecretBytes unwrapKey(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize) {
    return keyAlgorithm(key).gost ? sized(wrapping::unwrapGost(key, wrapped), keySize)
                                  : wrapping::unwrapRsa(key, wrapped, keySize);
}

SecretBytes unwrapKey(EVP_PKEY* key, const AgreedKey& wrapped, std::size_t keySize) {
    if (!keyAlgorithm(key).gost) {
        fail(capi::NTE_BAD_ALGID);
    }
    return sized(wrapping::unwrapGost(key, wrapped), keySize);
}

TransportedKey wrapKey(const RecipientKey& recipient, TransportForm form, ByteView contentKey) {
    return keyAlgorithm(recipient.key).gost ? wrapping::wrapGost(recipient, form, contentKey)
                                            : wrapping::wrapRsa(recipient.key, form, contentKey);
}

AgreedKey wrapKey(const RecipientKey& recipient, AgreementForm form, ByteView contentKey) {
    if (!keyAlgorithm(recipient.key).gost) {
        fail(capi::NTE_BAD_ALGID);
    }
    return wrapping::wrapGost(recipient, form, contentKey);
}

} // namespace klunortredi::csp
