#pragma once

/// The families of key wrapping behind crypto/key_wrapping.hpp.

#include "crypto/key_wrapping.hpp"

namespace klunortredi::csp::wrapping {

SecretBytes unwrapRsa(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize);
TransportedKey wrapRsa(EVP_PKEY* recipient, TransportForm form, ByteView contentKey);

SecretBytes unwrapGost(EVP_PKEY* key, const TransportedKey& wrapped);
TransportedKey wrapGost(const RecipientKey& recipient, TransportForm form, ByteView contentKey);

SecretBytes unwrapGost(EVP_PKEY* key, const AgreedKey& wrapped);
AgreedKey wrapGost(const RecipientKey& recipient, AgreementForm form, ByteView contentKey);

} // namespace klunortredi::csp::wrapping
