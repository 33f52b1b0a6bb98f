// Public-key algorithms and their parameter sets.
#include "oids.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <algorithm>
#include <array>

namespace orvik::plugin::crypto::tools {

namespace {

struct KeyAlgorithm {
    const char* oid;
    const char* agreement; ///< empty when there is none
    const char* hash;
    const char* signature;
};

constexpr KeyAlgorithm gost256 = {oids::gost2012_256, oids::gost2012_256Agreement, oids::hashGost2012_256,
                                  oids::signGost2012_256};
constexpr KeyAlgorithm gost512 = {oids::gost2012_512, oids::gost2012_512Agreement, oids::hashGost2012_512,
                                  oids::signGost2012_512};
constexpr KeyAlgorithm gost2001 = {oids::gost2001, oids::gost2001Agreement, oids::hashGost94, oids::signGost2001};
constexpr KeyAlgorithm rsa = {oids::rsa, "", oids::sha256, oids::signRsaSha256};

constexpr std::array keyAlgorithms = {gost256, gost512, gost2001, rsa};

struct ParamSet {
    const char* oid;
    const KeyAlgorithm& algorithm;
    const char* second; ///< the other algorithm OID that goes with the set
    const char* name;
};

// The curves of CryptoPro serve two generations of keys; the sets of TC26 belong to one algorithm.
constexpr std::array paramSets = {
    ParamSet{oids::cryptoProA, gost256, oids::gost2001, "CryptoPro A"},
    ParamSet{oids::cryptoProB, gost256, oids::gost2001, "CryptoPro B"},
    ParamSet{oids::cryptoProC, gost256, oids::gost2001, "CryptoPro C"},
    ParamSet{oids::cryptoProXchA, gost256, oids::gost2001, "CryptoPro XchA"},
    ParamSet{oids::cryptoProXchB, gost256, oids::gost2001, "CryptoPro XchB"},
    ParamSet{oids::tc26_256A, gost256, oids::gost2012_256Agreement, "TC26 256 A"},
    ParamSet{oids::tc26_256B, gost256, oids::gost2012_256Agreement, "TC26 256 B"},
    ParamSet{oids::tc26_256C, gost256, oids::gost2012_256Agreement, "TC26 256 C"},
    ParamSet{oids::tc26_256D, gost256, oids::gost2012_256Agreement, "TC26 256 D"},
    ParamSet{oids::tc26_512A, gost512, oids::gost2012_512Agreement, "TC26 512 A"},
    ParamSet{oids::tc26_512B, gost512, oids::gost2012_512Agreement, "TC26 512 B"},
    ParamSet{oids::tc26_512C, gost512, oids::gost2012_512Agreement, "TC26 512 C"},
    ParamSet{oids::rsa, rsa, "", "RSA"},
};

/// By either OID; null when unknown.
const KeyAlgorithm* keyAlgorithm(boost::string_view oid) {
    const auto* found = std::find_if(keyAlgorithms.begin(), keyAlgorithms.end(), [&](const KeyAlgorithm& row) {
        return !oid.empty() && (oid == row.oid || oid == row.agreement);
    });
    return found == keyAlgorithms.end() ? nullptr : found;
}

} // namespace

boost::optional<ParamSetInfo> algorithmParamSet(boost::string_view oid) {
    const auto* found =
        std::find_if(paramSets.begin(), paramSets.end(), [&](const ParamSet& row) { return oid == row.oid; });
    if (found == paramSets.end()) {
        return {};
    }
    const KeyAlgorithm& key = found->algorithm;
    return ParamSetInfo{found->oid, key.oid, found->second, key.hash, key.signature, found->name};
}

boost::optional<ParamSetInfo> algorithmParamSet(boost::string_view oid, const std::vector<std::string>& algorithms) {
    auto set = algorithmParamSet(oid);
    if (!set) {
        return set;
    }
    const auto has = [&](const std::string& wanted) {
        return std::find(algorithms.begin(), algorithms.end(), wanted) != algorithms.end();
    };
    const KeyAlgorithm* const second = keyAlgorithm(set->secondAlgorithm);
    if (!has(set->algorithm) && has(set->secondAlgorithm) && second != nullptr) {
        std::swap(set->algorithm, set->secondAlgorithm);
        set->hashAlgorithm = second->hash;
        set->signatureAlgorithm = second->signature;
    }
    return set;
}

std::string hashOidFromPublicKeyAlgOid(boost::string_view oid) {
    const KeyAlgorithm* const found = keyAlgorithm(oid);
    return found == nullptr ? std::string() : found->hash;
}

} // namespace orvik::plugin::crypto::tools
