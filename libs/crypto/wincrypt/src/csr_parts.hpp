#pragma once

/// The parts of a certificate request (RFC 2986) that CsrCreator puts together.

#include "capi/types.h"
#include "orvik/plugin/crypto/i_csr_creator.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::wincrypt::csr {

/// An extension or an attribute value under its OID.
struct Encoded {
    const char* oid;
    std::string der;
};

/// DER of the distinguished name written as "OID=VALUE;OID=VALUE", one attribute a relative name.
std::string encodeSubject(const std::string& subject);

/// The extensions that `params` asks for, and the key's identifier.
std::vector<Encoded> encodeExtensions(const crypto::CsrCreatorParams& params, std::string keyIdentifier);

/// The attributes of every request; the last one carries `extensions`.
std::vector<Encoded> encodeAttributes(const crypto::CsrCreatorParams& params, std::vector<Encoded> extensions);

} // namespace orvik::plugin::wincrypt::csr
