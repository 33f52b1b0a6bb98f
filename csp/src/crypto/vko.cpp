#include "crypto/vko.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "crypto/gost_modes.hpp"
#include "crypto/gost_params.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"

#include <openssl/ec.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

using Point = std::unique_ptr<EC_POINT, ossl::Deleter<EC_POINT_clear_free>>;
using Context = std::unique_ptr<BN_CTX, ossl::Deleter<BN_CTX_free>>;

constexpr std::size_t bitsPerOctet = 8;

/// The numbers of a key, as the engine keeps them: nothing here is owned.
struct KeyNumbers {
    const EC_GROUP* group;
    const BIGNUM* secret;
    const BIGNUM* order;
};

KeyNumbers numbersOf(EVP_PKEY* key) {
    const auto* numbers = static_cast<const EC_KEY*>(EVP_PKEY_get0(key));
    if (numbers == nullptr || EC_KEY_get0_private_key(numbers) == nullptr) {
        fail(capi::NTE_NO_KEY);
    }
    const EC_GROUP* const group = EC_KEY_get0_group(numbers);
    return {group, EC_KEY_get0_private_key(numbers), EC_GROUP_get0_order(group)};
}

ossl::Bn littleEndian(ByteView octets) {
    ossl::Bn number(BN_lebin2bn(octets.data(), static_cast<int>(octets.size()), nullptr));
    if (!number) {
        throw std::bad_alloc();
    }
    return number;
}

void require(bool succeeded) {
    if (!succeeded) {
        fail(capi::NTE_FAIL);
    }
}

const KeyAlgorithm& gostAlgorithm(const EVP_PKEY* key) {
    const KeyAlgorithm& algorithm = keyAlgorithm(key);
    if (!algorithm.gost) {
        fail(capi::NTE_BAD_ALGID);
    }
    return algorithm;
}

bool isLegacy(const KeyAlgorithm& algorithm) {
    return algorithm.signId == capi::CALG_GR3410EL;
}

/// The parameter set named beside the other key is one of the algorithm's, or absent (RFC 4490, 4.1). Its name is not
/// compared with the key's own: some curves have several (CryptoPro-A, CryptoPro-XchA, TC26-256-B), and the point shows
/// which curve it is on. A digest beside it has no effect: Bouncy Castle names that of 1994 for the CryptoPro curves.
void requireKnownSet(const KeyAlgorithm& algorithm, const GostPublicKey& other) {
    const bool named = !other.parameters.empty() && other.parameters != der::null();
    if (findKey(std::string_view(other.oid)) != &algorithm ||
        (named && gostCurveOf(algorithm, other.parameters) == nullptr)) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

Point decodePoint(const KeyNumbers& numbers, std::size_t coordinate, ByteView octets, BN_CTX* context) {
    if (octets.size() != 2 * coordinate) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const ossl::Bn x = littleEndian(octets.first(coordinate));
    const ossl::Bn y = littleEndian(octets.last(coordinate));
    Point point(EC_POINT_new(numbers.group));
    // Refuses what is not on the curve, and coordinates that are not reduced.
    if (!point || EC_POINT_set_affine_coordinates(numbers.group, point.get(), x.get(), y.get(), context) != 1) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    // On curves with a cofactor a point of a small order would reveal bits of the private key.
    if (BN_is_one(EC_GROUP_get0_cofactor(numbers.group)) == 0) {
        const Point multiple(EC_POINT_new(numbers.group));
        require(multiple &&
                EC_POINT_mul(numbers.group, multiple.get(), nullptr, point.get(), numbers.order, context) == 1);
        if (EC_POINT_is_at_infinity(numbers.group, multiple.get()) != 1) {
            fail(capi::NTE_BAD_PUBLIC_KEY);
        }
    }
    return point;
}

/// The common point (m / q * UKM * x mod q) * (y * P), its coordinates least significant octet first.
SecretBytes commonPoint(EVP_PKEY* key, const GostPublicKey& other, ByteView ukm) {
    const KeyAlgorithm& algorithm = gostAlgorithm(key);
    requireKnownSet(algorithm, other);
    const ossl::ErrorMark mark;
    const KeyNumbers numbers = numbersOf(key);
    const std::size_t coordinate = gostCoordinateSize(key);
    const Context context(BN_CTX_secure_new());
    require(context != nullptr);
    const Point theirs = decodePoint(numbers, coordinate, other.point, context.get());
    const ossl::Bn factor = littleEndian(ukm);
    if (BN_is_zero(factor.get()) != 0) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    BN_set_flags(factor.get(), BN_FLG_CONSTTIME);
    require(BN_mod_mul(factor.get(), factor.get(), EC_GROUP_get0_cofactor(numbers.group), numbers.order,
                       context.get()) == 1 &&
            BN_mod_mul(factor.get(), factor.get(), numbers.secret, numbers.order, context.get()) == 1);
    const Point common(EC_POINT_new(numbers.group));
    require(common &&
            EC_POINT_mul(numbers.group, common.get(), nullptr, theirs.get(), factor.get(), context.get()) == 1);
    if (EC_POINT_is_at_infinity(numbers.group, common.get()) == 1) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const ossl::Bn x(BN_new());
    const ossl::Bn y(BN_new());
    SecretBytes octets(2 * coordinate);
    const int size = static_cast<int>(coordinate);
    require(x && y &&
            EC_POINT_get_affine_coordinates(numbers.group, common.get(), x.get(), y.get(), context.get()) == 1 &&
            BN_bn2lebinpad(x.get(), octets.data(), size) == size &&
            BN_bn2lebinpad(y.get(), octets.data() + coordinate, size) == size);
    return octets;
}

SecretBytes hashed(ALG_ID digest, ByteView secret) {
    Bytes value = Digest::of(*findDigest(digest), secret);
    SecretBytes result(value.begin(), value.end());
    OPENSSL_cleanse(value.data(), value.size());
    return result;
}

} // namespace

GostPublicKey gostPublicKey(ByteView info) {
    spki::Parts parts = spki::split(info);
    try {
        const ByteView point = der::readOnly(parts.key, der::tag::OctetString).content;
        return {std::move(parts.oid), std::move(parts.parameters), {point.begin(), point.end()}};
    } catch (const ApiError&) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

std::size_t gostCoordinateSize(const EVP_PKEY* key) {
    return gostAlgorithm(key).defaultBits / bitsPerOctet;
}

SecretBytes vko(EVP_PKEY* key, const GostPublicKey& other, ByteView ukm) {
    const SecretBytes common = commonPoint(key, other, ukm);
    return hashed(isLegacy(gostAlgorithm(key)) ? capi::CALG_GR3411 : capi::CALG_GR3411_2012_256, common);
}

SecretBytes keg(EVP_PKEY* key, const GostPublicKey& other, ByteView ukm) {
    constexpr std::size_t factorSize = 16;
    constexpr std::size_t seedSize = 8;
    if (ukm.size() != kegUkmSize) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    if (isLegacy(gostAlgorithm(key))) {
        fail(capi::NTE_BAD_ALGID);
    }
    Bytes factor(ukm.begin(), ukm.begin() + factorSize);
    if (std::ranges::all_of(factor, [](std::uint8_t octet) { return octet == 0; })) {
        factor.back() = 1;
    }
    std::ranges::reverse(factor); // written most significant octet first
    const SecretBytes common = commonPoint(key, other, factor);
    if (gostCoordinateSize(key) > gostKeySize) {
        return hashed(capi::CALG_GR3411_2012_512, common);
    }
    return kdfTree512(hashed(capi::CALG_GR3411_2012_256, common), kdfTreeLabel, ukm.subspan(factorSize, seedSize));
}

} // namespace klunortredi::csp
