#pragma once

/// Blobs of the CryptoAPI as views.

#include "capi/types.h"
#include "core/bytes.hpp"

namespace klunortredi::csp {

/// The octets of a blob or bit blob; a null pointer counts as empty.
template <class Blob>
ByteView blobView(const Blob& blob) noexcept {
    return blob.pbData == nullptr ? ByteView{} : ByteView{blob.pbData, blob.cbData};
}

} // namespace klunortredi::csp
