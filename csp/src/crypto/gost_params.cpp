#include "crypto/gost_params.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

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

/// What stands beside the curve: the hash function, or for the one of 1994 its parameters.
std::string_view digestParameter(const KeyAlgorithm& key) {
    return key.oid == legacyKeyOid ? legacyDigestParams : defaultDigest(key).oid;
}

/// GostR3410-PublicKeyParameters.
struct Parameters {
    std::string set;
    std::string digest; ///< empty when absent
};

/// nullopt when they are malformed.
std::optional<Parameters> decode(ByteView parameters) {
    try {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        Parameters named;
        named.set = der::toOid(fields.read(der::tag::ObjectIdentifier));
        if (!fields.empty()) {
            named.digest = der::toOid(fields.read(der::tag::ObjectIdentifier));
        }
        if (!fields.empty()) {
            fields.read(der::tag::ObjectIdentifier); // of a cipher: nothing to a signature
        }
        fields.finish();
        return named;
    } catch (const ApiError&) {
        return std::nullopt;
    }
}

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
    const std::optional<Parameters> named = decode(parameters);
    if (!named || (!named->digest.empty() && named->digest != digestParameter(key))) {
        return nullptr;
    }
    return findGostParamSet(key, named->set);
}

const GostParamSet* gostCurveOf(const KeyAlgorithm& key, ByteView parameters) {
    const std::optional<Parameters> named = decode(parameters);
    return named ? findGostParamSet(key, named->set) : nullptr;
}

Bytes encodeGostParams(const KeyAlgorithm& key, const GostParamSet& set) {
    Bytes fields = der::objectIdentifier(set.oid);
    if (key.oid == legacyKeyOid || set.digestOid) {
        der::append(fields, der::objectIdentifier(digestParameter(key)));
    }
    return der::sequence({fields});
}

} // namespace klunortredi::csp
