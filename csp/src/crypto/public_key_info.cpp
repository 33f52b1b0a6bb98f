#include "crypto/public_key_info.hpp"

#include "core/error.hpp"
#include "crypto/asn1.hpp"
#include "crypto/engine.hpp"

#include <openssl/objects.h>

namespace klunortredi::csp::spki {

namespace {

std::string textOf(const ASN1_OBJECT* object) {
    const int length = OBJ_obj2txt(nullptr, 0, object, 1);
    if (length <= 0) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    OBJ_obj2txt(text.data(), length + 1, object, 1);
    text.pop_back();
    return text;
}

} // namespace

ossl::X509Pubkey decode(ByteView der) {
    gostEngine(); // the decoder looks for the key's algorithm while it reads
    const ossl::ErrorMark mark;
    const unsigned char* next = der.data();
    ossl::X509Pubkey info(d2i_X509_PUBKEY(nullptr, &next, static_cast<long>(der.size())));
    if (!info || next != der.data() + der.size()) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    return info;
}

Parts split(const X509_PUBKEY& info) {
    const unsigned char* key = nullptr;
    int keySize = 0;
    X509_ALGOR* algorithm = nullptr;
    if (X509_PUBKEY_get0_param(nullptr, &key, &keySize, &algorithm, &info) != 1) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const ASN1_OBJECT* oid = nullptr;
    int type = V_ASN1_UNDEF;
    const void* value = nullptr;
    X509_ALGOR_get0(&oid, &type, &value, algorithm);

    Parts parts{textOf(oid), {}, Bytes(key, key + keySize)};
    if (type == V_ASN1_SEQUENCE) {
        const auto* const encoded = static_cast<const ASN1_STRING*>(value);
        const unsigned char* const data = ASN1_STRING_get0_data(encoded);
        parts.parameters.assign(data, data + ASN1_STRING_length(encoded));
    }
    return parts;
}

Bytes join(const KeyAlgorithm& algorithm, const Parts& parts) {
    Bytes body = asn1::encodeOid(algorithm.oid);
    body.insert(body.end(), parts.parameters.begin(), parts.parameters.end());
    body = asn1::encodeSequence(body);
    const Bytes bits = asn1::encodeBitString(parts.key);
    body.insert(body.end(), bits.begin(), bits.end());
    return asn1::encodeSequence(body);
}

Bytes encode(const X509_PUBKEY& info) {
    unsigned char* encoded = nullptr;
    const int size = i2d_X509_PUBKEY(&info, &encoded);
    if (size <= 0) {
        fail(capi::NTE_FAIL);
    }
    Bytes der(encoded, encoded + size);
    OPENSSL_free(encoded);
    return der;
}

} // namespace klunortredi::csp::spki
