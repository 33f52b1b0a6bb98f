#include "crypto/algorithms.hpp"

#include "capi/constants.hpp"

#include <openssl/obj_mac.h>

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using namespace std::string_view_literals;

constexpr std::array digests{
    DigestAlgorithm{capi::CALG_GR3411_2012_256, "1.2.643.7.1.1.2.2"sv, "md_gost12_256", 32, true, {}},
    DigestAlgorithm{capi::CALG_GR3411_2012_512, "1.2.643.7.1.1.2.3"sv, "md_gost12_512", 64, true, {}},
    DigestAlgorithm{capi::CALG_GR3411, "1.2.643.2.2.9"sv, "md_gost94", 32, true, {}},
    DigestAlgorithm{capi::CALG_SHA1, "1.3.14.3.2.26"sv, "SHA1", 20, false, L"SHA1"sv},
    DigestAlgorithm{capi::CALG_SHA_256, "2.16.840.1.101.3.4.2.1"sv, "SHA256", 32, false, L"SHA256"sv},
    DigestAlgorithm{capi::CALG_SHA_384, "2.16.840.1.101.3.4.2.2"sv, "SHA384", 48, false, L"SHA384"sv},
    DigestAlgorithm{capi::CALG_SHA_512, "2.16.840.1.101.3.4.2.3"sv, "SHA512", 64, false, L"SHA512"sv},
    DigestAlgorithm{capi::CALG_OID_INFO_PARAMETERS, "2.16.840.1.101.3.4.2.4"sv, "SHA224", 28, false, {}},
};

constexpr std::array keys{
    KeyAlgorithm{capi::CALG_GR3410_12_256, capi::CALG_DH_GR3410_12_256_SF, "1.2.643.7.1.1.1.1"sv, "1.2.643.7.1.1.6.1"sv,
                 NID_id_GostR3410_2012_256, 256, true, L"GR 34.10-2012 256"sv},
    KeyAlgorithm{capi::CALG_GR3410_12_512, capi::CALG_DH_GR3410_12_512_SF, "1.2.643.7.1.1.1.2"sv, "1.2.643.7.1.1.6.2"sv,
                 NID_id_GostR3410_2012_512, 512, true, L"GR 34.10-2012 512"sv},
    KeyAlgorithm{capi::CALG_GR3410EL,
                 capi::CALG_DH_EL_SF,
                 "1.2.643.2.2.19"sv,
                 "1.2.643.2.2.98"sv,
                 NID_id_GostR3410_2001,
                 256,
                 true,
                 {}},
    KeyAlgorithm{capi::CALG_RSA_SIGN,
                 capi::CALG_RSA_KEYX,
                 "1.2.840.113549.1.1.1"sv,
                 {},
                 NID_rsaEncryption,
                 2048,
                 false,
                 L"RSA"sv},
};

/// RFC 9215 and RFC 4491 for GOST (the key's own OID too, as CMS producers write it), RFC 8017 for RSA.
constexpr std::array signatures{
    SignatureAlgorithm{"1.2.643.7.1.1.3.2"sv, "1.2.643.7.1.1.1.1"sv, "1.2.643.7.1.1.2.2"sv},
    SignatureAlgorithm{"1.2.643.7.1.1.3.3"sv, "1.2.643.7.1.1.1.2"sv, "1.2.643.7.1.1.2.3"sv},
    SignatureAlgorithm{"1.2.643.2.2.3"sv, "1.2.643.2.2.19"sv, "1.2.643.2.2.9"sv},
    SignatureAlgorithm{"1.2.643.7.1.1.1.1"sv, "1.2.643.7.1.1.1.1"sv, "1.2.643.7.1.1.2.2"sv},
    SignatureAlgorithm{"1.2.643.7.1.1.1.2"sv, "1.2.643.7.1.1.1.2"sv, "1.2.643.7.1.1.2.3"sv},
    SignatureAlgorithm{"1.2.643.2.2.19"sv, "1.2.643.2.2.19"sv, "1.2.643.2.2.9"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.5"sv, "1.2.840.113549.1.1.1"sv, "1.3.14.3.2.26"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.11"sv, "1.2.840.113549.1.1.1"sv, "2.16.840.1.101.3.4.2.1"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.12"sv, "1.2.840.113549.1.1.1"sv, "2.16.840.1.101.3.4.2.2"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.13"sv, "1.2.840.113549.1.1.1"sv, "2.16.840.1.101.3.4.2.3"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.14"sv, "1.2.840.113549.1.1.1"sv, "2.16.840.1.101.3.4.2.4"sv},
    SignatureAlgorithm{"1.2.840.113549.1.1.1"sv, "1.2.840.113549.1.1.1"sv, {}},
};

template <class Rows, class Predicate>
auto find(const Rows& rows, Predicate predicate) noexcept {
    const auto found = std::find_if(rows.begin(), rows.end(), predicate);
    return found == rows.end() ? nullptr : &*found;
}

} // namespace

std::span<const DigestAlgorithm> digestAlgorithms() noexcept {
    return digests;
}

std::span<const KeyAlgorithm> keyAlgorithms() noexcept {
    return keys;
}

std::span<const SignatureAlgorithm> signatureAlgorithms() noexcept {
    return signatures;
}

const DigestAlgorithm* findDigest(ALG_ID id) noexcept {
    return find(digests, [id](const auto& row) { return row.id == id && id != capi::CALG_OID_INFO_PARAMETERS; });
}

const DigestAlgorithm* findDigest(std::string_view oid) noexcept {
    return find(digests, [oid](const auto& row) { return row.oid == oid; });
}

const KeyAlgorithm* findKey(ALG_ID id) noexcept {
    return find(keys, [id](const auto& row) { return row.signId == id || row.exchangeId == id; });
}

const KeyAlgorithm* findKey(std::string_view oid) noexcept {
    return find(keys, [oid](const auto& row) { return !oid.empty() && (row.oid == oid || row.agreeOid == oid); });
}

const SignatureAlgorithm* findSignature(std::string_view oid) noexcept {
    return find(signatures, [oid](const auto& row) { return row.oid == oid; });
}

const DigestAlgorithm& defaultDigest(const KeyAlgorithm& key) noexcept {
    if (!key.gost) {
        return *findDigest(capi::CALG_SHA_256);
    }
    const auto* own = find(signatures, [&key](const auto& row) { return row.keyOid == key.oid; });
    return *findDigest(own->digestOid);
}

std::string_view signatureOid(const KeyAlgorithm& key, const DigestAlgorithm& digest) noexcept {
    const auto* row = find(signatures, [&](const auto& r) { return r.keyOid == key.oid && r.digestOid == digest.oid; });
    return row == nullptr ? std::string_view{} : row->oid;
}

} // namespace klunortredi::csp
