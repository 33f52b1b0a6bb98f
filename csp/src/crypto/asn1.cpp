#include "crypto/asn1.hpp"

#include "core/error.hpp"
#include "crypto/ossl.hpp"

#include <algorithm>

namespace klunortredi::csp::asn1 {

namespace {

constexpr std::uint8_t sequenceTag = 0x30;
constexpr std::uint8_t longForm = 0x80;

struct FreeSequence {
    void operator()(ASN1_SEQUENCE_ANY* sequence) const noexcept { sk_ASN1_TYPE_pop_free(sequence, ASN1_TYPE_free); }
};

Bytes wrap(int constructed, int tag, ByteView contents) {
    const int length = static_cast<int>(contents.size());
    Bytes encoded(static_cast<std::size_t>(ASN1_object_size(constructed, length, tag)));
    unsigned char* out = encoded.data();
    ASN1_put_object(&out, constructed, length, tag, V_ASN1_UNIVERSAL);
    std::copy(contents.begin(), contents.end(), out);
    return encoded;
}

} // namespace

std::optional<std::vector<Bytes>> splitSequence(ByteView der) {
    const ossl::ErrorMark mark;
    const unsigned char* next = der.data();
    const std::unique_ptr<ASN1_SEQUENCE_ANY, FreeSequence> sequence(
        d2i_ASN1_SEQUENCE_ANY(nullptr, &next, static_cast<long>(der.size())));
    if (!sequence || next != der.data() + der.size()) {
        return std::nullopt;
    }
    std::vector<Bytes> elements;
    for (int i = 0; i < sk_ASN1_TYPE_num(sequence.get()); ++i) {
        const ASN1_TYPE* const element = sk_ASN1_TYPE_value(sequence.get(), i);
        const int size = i2d_ASN1_TYPE(element, nullptr);
        if (size < 0) {
            return std::nullopt;
        }
        Bytes encoded(static_cast<std::size_t>(size));
        unsigned char* out = encoded.data();
        i2d_ASN1_TYPE(element, &out);
        elements.push_back(std::move(encoded));
    }
    return elements;
}

std::optional<std::string> oidText(ByteView der) {
    const ossl::ErrorMark mark;
    const unsigned char* next = der.data();
    const ossl::Asn1Object object(d2i_ASN1_OBJECT(nullptr, &next, static_cast<long>(der.size())));
    if (!object || next != der.data() + der.size()) {
        return std::nullopt;
    }
    const int length = OBJ_obj2txt(nullptr, 0, object.get(), 1);
    if (length <= 0) {
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    OBJ_obj2txt(text.data(), length + 1, object.get(), 1);
    text.pop_back();
    return text;
}

Bytes encodeOid(std::string_view dotted) {
    const ossl::ErrorMark mark;
    const ossl::Asn1Object object(OBJ_txt2obj(std::string(dotted).c_str(), 1));
    const int size = object ? i2d_ASN1_OBJECT(object.get(), nullptr) : -1;
    if (size <= 0) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    Bytes encoded(static_cast<std::size_t>(size));
    unsigned char* out = encoded.data();
    i2d_ASN1_OBJECT(object.get(), &out);
    return encoded;
}

Bytes encodeSequence(ByteView body) {
    return wrap(1, V_ASN1_SEQUENCE, body);
}

Bytes encodeBitString(ByteView octets) {
    Bytes contents{0}; // no unused bits
    contents.insert(contents.end(), octets.begin(), octets.end());
    return wrap(0, V_ASN1_BIT_STRING, contents);
}

std::optional<Bytes> octetString(ByteView der) {
    const ossl::ErrorMark mark;
    const unsigned char* next = der.data();
    const ossl::OctetString string(d2i_ASN1_OCTET_STRING(nullptr, &next, static_cast<long>(der.size())));
    if (!string || next != der.data() + der.size()) {
        return std::nullopt;
    }
    const unsigned char* const data = ASN1_STRING_get0_data(string.get());
    return Bytes(data, data + ASN1_STRING_length(string.get()));
}

std::optional<std::size_t> sequenceLength(const std::uint8_t* data, std::size_t limit) {
    if (data[0] != sequenceTag) {
        return std::nullopt;
    }
    if ((data[1] & longForm) == 0) {
        return 2U + data[1];
    }
    const auto octets = static_cast<std::size_t>(data[1] ^ longForm);
    if (octets == 0 || octets > sizeof(std::uint32_t)) {
        return std::nullopt;
    }
    std::size_t length = 0;
    for (std::size_t i = 0; i < octets; ++i) {
        length = (length << 8U) | data[2 + i];
    }
    length += 2 + octets;
    return length <= limit ? std::optional(length) : std::nullopt;
}

} // namespace klunortredi::csp::asn1
