// CryptCreateHash, CryptHashData, CryptGetHashParam, CryptDestroyHash, CryptHashCertificate.

#include "providers.hpp"
#include "samples.hpp"

#include <algorithm>
#include <array>

namespace conformance {

namespace {

using namespace capi;

struct Vector {
    ALG_ID algorithm;
    std::string message;
    const char* value;
};

/// RFC 6986 (10.1, octets in the order in which they are hashed), FIPS 180-4 examples, and GOST R 34.11-94 with the
/// CryptoPro parameter set of RFC 4357.
const std::array vectors{
    Vector{CALG_GR3411_2012_256, "012345678901234567890123456789012345678901234567890123456789012",
           "9d151eefd8590b89daa6ba6cb74af9275dd051026bb149a452fd84e5e57b5500"},
    Vector{CALG_GR3411_2012_512, "012345678901234567890123456789012345678901234567890123456789012",
           "1b54d01a4af5b9d5cc3d86d68d285462b19abc2475222f35c085122be4ba1ffa"
           "00ad30f8767b3a82384c6574f024c311e2a481332b08ef7f41797891c1646f48"},
    Vector{CALG_GR3411, "", "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
    Vector{CALG_GR3411, "abc", "b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c"},
    Vector{CALG_SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    Vector{CALG_SHA_256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    Vector{CALG_SHA_384, "abc",
           "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
           "8086072ba1e7cc2358baeca134c825a7"},
    Vector{CALG_SHA_512, "abc",
           "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
           "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
};

class HashOf : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    HashOf() : context_(verifyContext(GetParam().type)) {}
    [[nodiscard]] Hash make(ALG_ID algorithm = GetParam().hash) const {
        Hash hash;
        must(api().CryptCreateHash(context_.get(), algorithm, 0, 0, hash.address()) != 0, "creating a hash");
        return hash;
    }
    static void feed(const Hash& hash, std::string_view text) {
        must(api().CryptHashData(hash.get(), reinterpret_cast<const BYTE*>(text.data()),
                                 static_cast<DWORD>(text.size()), 0) != 0,
             "hashing");
    }
    static Fetch param(unsigned long hash, DWORD number) {
        return [=](void* buffer, DWORD* size) {
            return api().CryptGetHashParam(hash, number, static_cast<BYTE*>(buffer), size, 0) != 0;
        };
    }
    static Bytes value(const Hash& hash) { return fetch(param(hash.get(), HP_HASHVAL)); }

    Context context_;
    BYTE octet_ = 0;
    DWORD size_ = 0;
};

constexpr ALG_ID noAlgorithm = 0x8FFF;
constexpr DWORD unknownParam = 999;

} // namespace

TEST_P(HashOf, RefusesToBeMadeWithoutAPlaceForTheHandle) {
    EXPECT_REFUSED(api().CryptCreateHash(context_.get(), GetParam().hash, 0, 0, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_P(HashOf, RefusesToBeMadeFromWhatIsNoContext) {
    const Hash other = make();
    Hash made;
    for (const unsigned long handle : notHandles({other.get()})) {
        EXPECT_REFUSED(api().CryptCreateHash(handle, GetParam().hash, 0, 0, made.address()), BAD_PROVIDER) << handle;
    }
}

TEST_P(HashOf, RefusesUnknownAlgorithmsAndFlags) {
    Hash made;
    EXPECT_REFUSED(api().CryptCreateHash(context_.get(), noAlgorithm, 0, 0, made.address()), NTE_BAD_ALGID);
    EXPECT_REFUSED(api().CryptCreateHash(context_.get(), GetParam().signId, 0, 0, made.address()), NTE_BAD_ALGID);
    EXPECT_REFUSED(api().CryptCreateHash(context_.get(), GetParam().hash, 0, 2, made.address()), NTE_BAD_FLAGS);
}

TEST_P(HashOf, RefusesAKeyThatIsNone) {
    Hash made;
    EXPECT_REFUSED(api().CryptCreateHash(context_.get(), GetParam().hash, 1, 0, made.address()), BAD_KEY_HANDLE);
}

TEST_P(HashOf, RefusesNullPointers) {
    const Hash hash = make();
    EXPECT_REFUSED(api().CryptHashData(hash.get(), nullptr, 1, 0), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, nullptr, 0), ERROR_INVALID_PARAMETER);
}

TEST_P(HashOf, RefusesWhatIsNoHash) {
    Hash hash = make();
    for (const unsigned long handle : notHandles({context_.get()})) {
        EXPECT_REFUSED(api().CryptHashData(handle, &octet_, 1, 0), BAD_HASH_HANDLE) << handle;
        EXPECT_REFUSED(api().CryptGetHashParam(handle, HP_HASHVAL, nullptr, &size_, 0), BAD_HASH_HANDLE) << handle;
        EXPECT_REFUSED(api().CryptDestroyHash(handle), BAD_HASH_HANDLE) << handle;
    }
    const unsigned long stale = hash.release();
    EXPECT_ACCEPTED(api().CryptDestroyHash(stale));
    EXPECT_REFUSED(api().CryptHashData(stale, &octet_, 1, 0), BAD_HASH_HANDLE);
    EXPECT_REFUSED(api().CryptGetHashParam(stale, HP_HASHVAL, nullptr, &size_, 0), BAD_HASH_HANDLE);
    EXPECT_REFUSED(api().CryptDestroyHash(stale), BAD_HASH_HANDLE);
}

TEST_P(HashOf, RefusesUnknownParametersAndFlags) {
    const Hash hash = make();
    EXPECT_REFUSED(api().CryptGetHashParam(hash.get(), unknownParam, nullptr, &size_, 0), NTE_BAD_TYPE);
    EXPECT_REFUSED(api().CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, &size_, 2), NTE_BAD_FLAGS);
    EXPECT_REFUSED(api().CryptHashData(hash.get(), &octet_, 1, 2), NTE_BAD_FLAGS);
}

TEST_P(HashOf, OutlivesItsContextOnlyAsARefusal) {
    const Hash hash = make();
    api().CryptReleaseContext(context_.release(), 0);
    EXPECT_REFUSED(api().CryptHashData(hash.get(), &octet_, 1, 0), NTE_BAD_UID, BAD_HASH_HANDLE);
}

TEST_P(HashOf, TakesNoDataAfterItsValueWasRead) {
    const Hash hash = make();
    feed(hash, "abc");
    const Bytes read = value(hash);
    EXPECT_REFUSED(api().CryptHashData(hash.get(), &octet_, 1, 0), NTE_BAD_HASH_STATE);
    EXPECT_EQ(value(hash), read) << "the value stays readable";
}

TEST_P(HashOf, GoesOnAfterItsSizeWasAsked) {
    const Hash hash = make();
    feed(hash, "a");
    EXPECT_ACCEPTED(api().CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, &size_, 0));
    EXPECT_ACCEPTED(api().CryptHashData(hash.get(), &octet_, 0, 0));
    feed(hash, "bc");
    const Hash whole = make();
    feed(whole, "abc");
    EXPECT_EQ(value(hash), value(whole));
}

TEST_P(HashOf, WalksTheSizesOfItsParameters) {
    const Hash hash = make();
    feed(hash, "abc");
    EXPECT_EQ(as<ALG_ID>(walkSizes(param(hash.get(), HP_ALGID))), GetParam().hash);
    const DWORD told = as<DWORD>(walkSizes(param(hash.get(), HP_HASHSIZE)));
    EXPECT_EQ(walkSizes(param(hash.get(), HP_HASHVAL)).size(), told);
}

TEST_P(HashOf, AgreesWithThePublishedVectors) {
    for (const Vector& vector : vectors) {
        const bool offered =
            vector.algorithm == GetParam().hash || accepts([&] {
                Hash probe;
                return api().CryptCreateHash(context_.get(), vector.algorithm, 0, 0, probe.address()) != 0;
            });
        if (offered) {
            const Hash hash = make(vector.algorithm);
            feed(hash, vector.message);
            EXPECT_EQ(toHex(value(hash)), vector.value) << std::hex << vector.algorithm;
        }
    }
}

TEST_P(HashOf, DoesNotDependOnTheChunks) {
    const std::string text(1000, 'x');
    const Hash whole = make();
    feed(whole, text);
    const Hash pieces = make();
    for (std::size_t at = 0, step = 1; at < text.size(); at += step, ++step) {
        feed(pieces, std::string_view(text).substr(at, step));
    }
    EXPECT_EQ(value(whole), value(pieces));
}

TEST_P(HashOf, OfACertificateIsTheHashOfItsOctets) {
    const Bytes& der = samples::leaf();
    const Hash hash = make();
    must(api().CryptHashData(hash.get(), der.data(), sizeOf(der), 0) != 0, "hashing");
    const Bytes own = walkSizes([&](void* buffer, DWORD* size) {
        return api().CryptHashCertificate(context_.get(), GetParam().hash, 0, der.data(), sizeOf(der),
                                          static_cast<BYTE*>(buffer), size) != 0;
    });
    EXPECT_EQ(own, value(hash));
}

TEST_P(HashOf, OfACertificateRefusesBadArguments) {
    const Bytes& der = samples::leaf();
    const Hash hash = make();
    EXPECT_REFUSED(api().CryptHashCertificate(context_.get(), GetParam().hash, 0, nullptr, 1, nullptr, &size_),
                   ERROR_INVALID_PARAMETER);
    for (const unsigned long handle : {1UL, ~0UL, hash.get()}) { // 0 leaves the choice of the provider to the service
        EXPECT_REFUSED(api().CryptHashCertificate(handle, GetParam().hash, 0, der.data(), sizeOf(der), nullptr, &size_),
                       BAD_PROVIDER)
            << handle;
    }
    EXPECT_REFUSED(api().CryptHashCertificate(context_.get(), noAlgorithm, 0, der.data(), sizeOf(der), nullptr, &size_),
                   NTE_BAD_ALGID);
}

INSTANTIATE_TEST_SUITE_P(Providers, HashOf, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
