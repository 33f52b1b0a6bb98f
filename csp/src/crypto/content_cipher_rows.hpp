#pragma once

/// The two families of content ciphers behind crypto/content_cipher.hpp: those made here, and those of OpenSSL.

#include "crypto/content_cipher.hpp"

namespace klunortredi::csp::content {

Bytes newGostParameters(const ContentAlgorithm& algorithm, std::string_view gostParamSet);
std::unique_ptr<ContentEncryptor> gostEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key);
std::unique_ptr<ContentDecryptor> gostDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key);

Bytes newEvpParameters(const ContentAlgorithm& algorithm);
std::unique_ptr<ContentEncryptor> evpEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                               ByteView attributes);
std::unique_ptr<ContentDecryptor> evpDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                               ByteView attributes);

} // namespace klunortredi::csp::content
