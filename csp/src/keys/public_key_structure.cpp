#include "keys/public_key_structure.hpp"

#include "crypto/public_key_info.hpp"

namespace klunortredi::csp {

StructBuilder publicKeyStructure(ByteView subjectPublicKeyInfo) {
    const spki::Parts parts = spki::split(subjectPublicKeyInfo);
    StructBuilder builder(sizeof(CERT_PUBLIC_KEY_INFO));
    builder.text(offsetof(CERT_PUBLIC_KEY_INFO, Algorithm.pszObjId), parts.oid);
    builder.blob(offsetof(CERT_PUBLIC_KEY_INFO, Algorithm.Parameters), parts.parameters);
    builder.blob(offsetof(CERT_PUBLIC_KEY_INFO, PublicKey), parts.key); // cUnusedBits stays 0
    return builder;
}

} // namespace klunortredi::csp
