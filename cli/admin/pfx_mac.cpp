#include "pfx_mac.hpp"

#include "asn1/der.hpp"
#include "core/bytes.hpp"
#include "core/secret.hpp"
#include "failure.hpp"

#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <vector>

namespace klunortredi::admin {

namespace {

namespace ossl = csp::ossl;
namespace der = csp::der;
using cli::ExitCode;
using cli::Failure;
using csp::Bytes;
using csp::ByteView;

struct Mac {
    const EVP_MD* digest;
    ByteView value;
    ByteView salt;
    int iterations;
};

ByteView view(const ASN1_OCTET_STRING* string) {
    return {ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string))};
}

Mac macOf(PKCS12* file) {
    const ASN1_OCTET_STRING* value = nullptr;
    const X509_ALGOR* algorithm = nullptr;
    const ASN1_OCTET_STRING* salt = nullptr;
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(&value, &algorithm, &salt, &iterations, file);
    const ASN1_OBJECT* oid = nullptr;
    X509_ALGOR_get0(&oid, nullptr, nullptr, algorithm);
    const long count = iterations == nullptr ? 1 : ASN1_INTEGER_get(iterations); // within the budget: it fits
    const EVP_MD* const digest = EVP_get_digestbyobj(oid);
    if (digest == nullptr) {
        throw Failure(ExitCode::input, "cannot check the password", "the file's MAC is of an unknown algorithm");
    }
    return {digest, view(value), view(salt), static_cast<int>(count)};
}

bool isGost(const EVP_MD* digest) {
    constexpr std::array gost{NID_id_GostR3411_94, NID_id_GostR3411_2012_256, NID_id_GostR3411_2012_512};
    return std::find(gost.begin(), gost.end(), EVP_MD_get_type(digest)) != gost.end();
}

/// DER of the file, whose MAC covers the contents of one octet string in it.
Bytes encode(const PKCS12* file) {
    unsigned char* encoded = nullptr;
    const int size = i2d_PKCS12(file, &encoded);
    if (size <= 0) {
        throw Failure(ExitCode::input, "cannot check the password", "the file is not well-formed");
    }
    Bytes octets(encoded, encoded + size);
    OPENSSL_free(encoded);
    return octets;
}

ByteView authenticatedSafe(ByteView file) {
    der::Reader fields = der::Reader(file).enter(der::tag::Sequence);
    fields.read(der::tag::Integer);
    der::Reader contentInfo = fields.enter(der::tag::Sequence);
    contentInfo.read(der::tag::ObjectIdentifier);
    return contentInfo.enter(der::tag::contextConstructed(0)).read(der::tag::OctetString).content;
}

/// The MAC with a key of RFC 7292, appendix B, which OpenSSL does not try for GOST hashes.
bool matchesAppendixB(PKCS12* file, const Mac& mac, Password password) {
    const auto size = EVP_MD_get_size(mac.digest);
    std::vector<unsigned char, csp::WipingAllocator<unsigned char>> key(static_cast<std::size_t>(size));
    std::vector<unsigned char> salt(mac.salt.begin(), mac.salt.end());
    if (PKCS12_key_gen_utf8(password ? password->data() : nullptr, password ? static_cast<int>(password->size()) : 0,
                            salt.data(), static_cast<int>(salt.size()), PKCS12_MAC_ID, mac.iterations, size, key.data(),
                            mac.digest) != 1) {
        return false;
    }
    const Bytes whole = encode(file);
    const ByteView content = authenticatedSafe(whole);
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned length = 0;
    return HMAC(mac.digest, key.data(), size, content.data(), content.size(), value.data(), &length) != nullptr &&
           length == mac.value.size() && CRYPTO_memcmp(value.data(), mac.value.data(), length) == 0;
}

} // namespace

std::uint64_t workOfMac(const PKCS12* file) {
    constexpr std::uint64_t derivations = 2; // of a GOST MAC: one, or two blocks, and another way
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, file);
    const std::uint64_t work = iterations == nullptr ? 1 : workOf(iterations);
    return work > endlessWork / derivations ? endlessWork : work * derivations;
}

bool macMatches(PKCS12* file, Password password, WorkBudget& budget) {
    budget.take(workOfMac(file));
    const ossl::ErrorMark mark;
    const Mac mac = macOf(file);
    return PKCS12_verify_mac(file, password ? password->data() : nullptr,
                             password ? static_cast<int>(password->size()) : 0) == 1 ||
           (isGost(mac.digest) && matchesAppendixB(file, mac, password));
}

} // namespace klunortredi::admin
