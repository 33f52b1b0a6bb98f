#include "certs/der.hpp"

#include <limits>
#include <memory>

namespace klunortredi::csp::der {

namespace {

using Asn1Type = std::unique_ptr<ASN1_TYPE, ossl::Deleter<ASN1_TYPE_free>>;
using BitString = std::unique_ptr<ASN1_BIT_STRING, ossl::Deleter<ASN1_BIT_STRING_free>>;

Bytes objectIdentifier(const char* dotted) {
    const QuietErrors quiet;
    const ossl::Asn1Object oid(dotted == nullptr ? nullptr : OBJ_txt2obj(dotted, 1));
    if (!oid) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    return encode(i2d_ASN1_OBJECT, oid.get());
}

} // namespace

std::string oidText(const ASN1_OBJECT* oid) {
    const int size = OBJ_obj2txt(nullptr, 0, oid, 1);
    if (size <= 0) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    OBJ_obj2txt(text.data(), size + 1, oid, 1);
    return text;
}

Bytes sequence(std::initializer_list<ByteView> members) {
    std::size_t contentSize = 0;
    for (const ByteView member : members) {
        contentSize += member.size();
    }
    if (contentSize > std::numeric_limits<int>::max() / 2) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    const int total = ASN1_object_size(1, static_cast<int>(contentSize), V_ASN1_SEQUENCE);
    Bytes der;
    der.resize(static_cast<std::size_t>(total) - contentSize);
    unsigned char* out = der.data();
    ASN1_put_object(&out, 1, static_cast<int>(contentSize), V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    der.reserve(static_cast<std::size_t>(total));
    for (const ByteView member : members) {
        der.insert(der.end(), member.begin(), member.end());
    }
    return der;
}

Bytes bitString(ByteView octets, DWORD unusedBits) {
    if (unusedBits > 7 || (unusedBits != 0 && octets.empty())) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    const BitString bits(ASN1_BIT_STRING_new());
    if (!bits || ASN1_BIT_STRING_set(bits.get(), const_cast<unsigned char*>(octets.data()), // NOLINT
                                     static_cast<int>(octets.size())) == 0) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    bits->flags |= ASN1_STRING_FLAG_BITS_LEFT | static_cast<long>(unusedBits);
    return encode(i2d_ASN1_BIT_STRING, bits.get());
}

Bytes algorithmIdentifier(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
    const Bytes oid = objectIdentifier(algorithm.pszObjId);
    const ByteView parameters = view(algorithm.Parameters);
    if (!parameters.empty() && !decode<Asn1Type>(d2i_ASN1_TYPE, parameters)) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return sequence({oid, parameters});
}

} // namespace klunortredi::csp::der
