#include "support/servers/openssl_objects.hpp"

#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace test_servers {

namespace {

struct KindRow {
    KeyKind kind;
    const char* word;
    int key;
    int digest;
};
constexpr std::array kinds{
    KindRow{KeyKind::ec, "ec", EVP_PKEY_EC, NID_sha256},
    KindRow{KeyKind::rsa, "rsa", EVP_PKEY_RSA, NID_sha256},
    KindRow{KeyKind::gost2012_256, "gost2012_256", NID_id_GostR3410_2012_256, NID_id_GostR3411_2012_256},
    KindRow{KeyKind::gost2012_512, "gost2012_512", NID_id_GostR3410_2012_512, NID_id_GostR3411_2012_512},
};

const KindRow& rowOf(KeyKind kind) {
    return *std::ranges::find(kinds, kind, &KindRow::kind);
}

bool isGost(KeyKind kind) {
    return kind == KeyKind::gost2012_256 || kind == KeyKind::gost2012_512;
}

ENGINE* gost() {
    static ENGINE* const engine = [] {
        ENGINE_load_dynamic();
        ENGINE* const loaded = ENGINE_by_id("gost");
        require(loaded != nullptr && ENGINE_init(loaded) == 1, "the GOST engine");
        ENGINE_register_digests(loaded); // for the GOST algorithms alone: decoded keys of theirs need it
        ENGINE_register_pkey_meths(loaded);
        ENGINE_register_pkey_asn1_meths(loaded);
        return loaded;
    }();
    return engine;
}

} // namespace

void require(bool done, const char* what) {
    if (!done) {
        std::array<char, 256> reason{};
        ERR_error_string_n(ERR_peek_last_error(), reason.data(), reason.size());
        throw std::runtime_error(std::string(what) + ": " + reason.data());
    }
}

KeyKind keyKind(const std::string& word) {
    const auto row = std::ranges::find(kinds, word, &KindRow::word);
    if (row == kinds.end()) {
        throw std::runtime_error("not a kind of key: " + word);
    }
    return row->kind;
}

Key makeKey(KeyKind kind) {
    const auto& row = rowOf(kind);
    const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new_id(row.key, isGost(kind) ? gost() : nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) == 1, "keygen");
    if (isGost(kind)) {
        require(EVP_PKEY_CTX_ctrl_str(context.get(), "paramset", "A") == 1, "parameter set");
    } else if (kind == KeyKind::ec) {
        require(EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1) == 1, "curve");
    } else {
        require(EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), 2048) == 1, "bits");
    }
    EVP_PKEY* made = nullptr;
    require(EVP_PKEY_keygen(context.get(), &made) == 1, "keygen");
    return {made, EVP_PKEY_free};
}

const EVP_MD* digestOf(KeyKind kind) {
    return isGost(kind) ? ENGINE_get_digest(gost(), rowOf(kind).digest) : EVP_sha256();
}

namespace der {

std::string tlv(int tag, const std::string& content) {
    std::string out(1, static_cast<char>(tag));
    if (content.size() < 0x80) {
        out += static_cast<char>(content.size());
    } else {
        std::string length;
        for (std::size_t rest = content.size(); rest > 0; rest >>= 8U) {
            length.insert(length.begin(), static_cast<char>(rest & 0xFFU));
        }
        out += static_cast<char>(0x80U | length.size());
        out += length;
    }
    return out + content;
}

std::string sequence(const std::vector<std::string>& elements) {
    std::string content;
    for (const auto& element : elements) {
        content += element;
    }
    return tlv(0x30, content);
}

std::string setOf(std::vector<std::string> elements, int tag) {
    std::ranges::sort(elements, [](const std::string& a, const std::string& b) { // octets as numbers
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
            return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
        });
    });
    std::string content;
    for (const auto& element : elements) {
        content += element;
    }
    return tlv(tag, content);
}

std::string integer(long value) {
    const Owned<ASN1_INTEGER, ASN1_INTEGER_free> number(ASN1_INTEGER_new());
    require(ASN1_INTEGER_set(number.get(), value) == 1, "integer");
    return toDer(number.get(), i2d_ASN1_INTEGER);
}

std::string oid(const std::string& text) {
    const Owned<ASN1_OBJECT, ASN1_OBJECT_free> object(OBJ_txt2obj(text.c_str(), 0));
    require(object != nullptr, text.c_str());
    return toDer(object.get(), i2d_ASN1_OBJECT);
}

std::string octets(const std::string& content) {
    return tlv(0x04, content);
}

} // namespace der

} // namespace test_servers
