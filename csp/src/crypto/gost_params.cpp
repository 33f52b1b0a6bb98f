#include "crypto/gost_params.hpp"

#include "crypto/asn1.hpp"
#include "crypto/ossl.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using namespace std::string_view_literals;

constexpr std::array sets{
    GostParamSet{"1.2.643.2.2.35.1"sv, 256, true, true, true, "A"},
    GostParamSet{"1.2.643.2.2.35.2"sv, 256, true, true, true, "B"},
    GostParamSet{"1.2.643.2.2.35.3"sv, 256, true, true, true, "C"},
    GostParamSet{"1.2.643.2.2.36.0"sv, 256, true, true, true, "XA"},
    GostParamSet{"1.2.643.2.2.36.1"sv, 256, true, true, true, "XB"},
    GostParamSet{"1.2.643.7.1.2.1.1.1"sv, 256, false, true, false, "TCA"},
    GostParamSet{"1.2.643.7.1.2.1.1.2"sv, 256, false, true, false, "TCB"},
    GostParamSet{"1.2.643.7.1.2.1.1.3"sv, 256, false, true, false, "TCC"},
    GostParamSet{"1.2.643.7.1.2.1.1.4"sv, 256, false, true, false, "TCD"},
    GostParamSet{"1.2.643.7.1.2.1.2.1"sv, 512, false, true, false, "A"},
    GostParamSet{"1.2.643.7.1.2.1.2.2"sv, 512, false, true, false, "B"},
    GostParamSet{"1.2.643.7.1.2.1.2.3"sv, 512, false, true, false, "C"},
    GostParamSet{"1.2.643.2.2.35.0"sv, 256, true, false, true, "0"},
    GostParamSet{"1.2.643.7.1.2.1.2.0"sv, 512, false, false, false, "0"},
};

constexpr auto legacyKeyOid = "1.2.643.2.2.19"sv;
/// id-GostR3411-94-CryptoProParamSet: the hash parameters of GOST R 34.10-2001 keys (RFC 4357).
constexpr auto legacyDigestParams = "1.2.643.2.2.30.1"sv;

} // namespace

std::span<const GostParamSet> gostParamSets() noexcept {
    return sets;
}

const GostParamSet* findGostParamSet(const KeyAlgorithm& key, std::string_view oid) noexcept {
    const auto found = std::find_if(sets.begin(), sets.end(), [&](const GostParamSet& set) {
        return set.oid == oid && set.bits == key.defaultBits && (set.legacy || key.oid != legacyKeyOid);
    });
    return key.gost && found != sets.end() ? &*found : nullptr;
}

const GostParamSet* gostParamSetOf(const KeyAlgorithm& key, ByteView parameters) {
    const auto parts = asn1::splitSequence(parameters);
    if (!parts || parts->empty() || parts->size() > 3) {
        return nullptr;
    }
    const auto oid = asn1::oidText(parts->front());
    return oid ? findGostParamSet(key, *oid) : nullptr;
}

Bytes encodeGostParams(const KeyAlgorithm& key, const GostParamSet& set) {
    Bytes body = asn1::encodeOid(set.oid);
    const auto add = [&body](std::string_view oid) {
        const Bytes encoded = asn1::encodeOid(oid);
        body.insert(body.end(), encoded.begin(), encoded.end());
    };
    if (key.oid == legacyKeyOid) {
        add(legacyDigestParams);
    } else if (set.digestOid) {
        add(defaultDigest(key).oid);
    }
    return asn1::encodeSequence(body);
}

} // namespace klunortredi::csp
