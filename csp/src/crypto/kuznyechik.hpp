#pragma once

/// The block cipher Kuznyechik (GOST R 34.12-2015, RFC 7801).
///
/// Tables are looked up by secret values: as with the GOST engine, somebody who shares the processor's cache with the
/// service could learn of the key.

#include "crypto/block_cipher.hpp"

namespace klunortredi::csp {

std::unique_ptr<BlockCipher> makeKuznyechik(GostKeyView key);

} // namespace klunortredi::csp
