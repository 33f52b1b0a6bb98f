#include "keys/algorithm_list.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace klunortredi::csp {

namespace {

struct Named {
    ALG_ID id;
    std::string_view name; ///< up to 19 characters: PROV_ENUMALGS has room for no more
};

constexpr std::array names{
    Named{capi::CALG_GR3411_2012_256, "GR 34.11-2012 256"},
    Named{capi::CALG_GR3411_2012_512, "GR 34.11-2012 512"},
    Named{capi::CALG_GR3411, "GR 34.11-94"},
    Named{capi::CALG_SHA1, "SHA-1"},
    Named{capi::CALG_SHA_256, "SHA-256"},
    Named{capi::CALG_SHA_384, "SHA-384"},
    Named{capi::CALG_SHA_512, "SHA-512"},
    Named{capi::CALG_GR3410_12_256, "GR 34.10-2012 256"},
    Named{capi::CALG_DH_GR3410_12_256_SF, "DH 34.10-2012 256"},
    Named{capi::CALG_GR3410_12_512, "GR 34.10-2012 512"},
    Named{capi::CALG_DH_GR3410_12_512_SF, "DH 34.10-2012 512"},
    Named{capi::CALG_GR3410EL, "GR 34.10-2001"},
    Named{capi::CALG_DH_EL_SF, "DH 34.10-2001"},
    Named{capi::CALG_RSA_SIGN, "RSA_SIGN"},
    Named{capi::CALG_RSA_KEYX, "RSA_KEYX"},
};
static_assert(std::ranges::all_of(names,
                                  [](const Named& row) { return row.name.size() < sizeof(PROV_ENUMALGS::szName); }));

Bytes record(ALG_ID id, std::size_t bits) {
    const std::string_view name = std::ranges::find(names, id, &Named::id)->name;
    PROV_ENUMALGS row{id, static_cast<DWORD>(bits), static_cast<DWORD>(name.size() + 1), {}};
    std::ranges::copy(name, row.szName);
    const auto octets = std::bit_cast<std::array<std::uint8_t, sizeof row>>(row);
    return {octets.begin(), octets.end()};
}

} // namespace

std::vector<Bytes> algorithmList(const ProviderRecord& provider) {
    constexpr std::size_t bitsPerOctet = 8;
    std::vector<Bytes> list;
    for (const DigestAlgorithm& digest : digestAlgorithms()) {
        if (offers(provider, digest)) {
            list.push_back(record(digest.id, digest.size * bitsPerOctet));
        }
    }
    const KeyAlgorithm& key = keyAlgorithm(provider);
    list.push_back(record(key.signId, key.defaultBits));
    list.push_back(record(key.exchangeId, key.defaultBits));
    return list;
}

} // namespace klunortredi::csp
