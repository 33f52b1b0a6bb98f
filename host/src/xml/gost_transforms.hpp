#pragma once

/// GOST digests and signatures as transforms of xmlsec, whose own are not built into Debian's library.

#include <xmlsec/transforms.h>
#include <xmlsec/xmlsec.h>

#include <string_view>
#include <vector>

namespace orvik::plugin::xml::internal {

/// Makes the transforms known to xmlsec by their URIs. Call it once, after xmlSecInit. A signature transform takes the
/// signer's EVP_PKEY from the user data of the transform context.
bool registerGostTransforms();

/// Whether the URI is that of one of them.
bool isGostTransform(std::string_view uri) noexcept;

/// All of them, once registered.
std::vector<xmlSecTransformId> gostTransforms();

} // namespace orvik::plugin::xml::internal
