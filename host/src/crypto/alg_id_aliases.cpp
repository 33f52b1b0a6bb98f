#include "oids.hpp"
#include "orvik/plugin/crypto/constant.hpp"

namespace orvik::plugin::crypto::constant {

// The services' algorithm numbers, as PP_ENUMALGS reports them.
const std::map<unsigned int, std::string> alg_id_aliases = {
    {0x2E49, oids::gost2012_256},          // CALG_GR3410_12_256
    {0x2E3D, oids::gost2012_512},          // CALG_GR3410_12_512
    {0x2E23, oids::gost2001},              // CALG_GR3410EL
    {0xAA46, oids::gost2012_256Agreement}, // CALG_DH_GR3410_12_256_SF
    {0xAA42, oids::gost2012_512Agreement}, // CALG_DH_GR3410_12_512_SF
    {0xAA24, oids::gost2001Agreement},     // CALG_DH_EL_SF
    {0x2400, oids::rsa},                   // CALG_RSA_SIGN
    {0xA400, oids::rsa},                   // CALG_RSA_KEYX
    {0x8021, oids::hashGost2012_256},      // CALG_GR3411_2012_256
    {0x8022, oids::hashGost2012_512},      // CALG_GR3411_2012_512
    {0x801E, oids::hashGost94},            // CALG_GR3411
    {0x8004, oids::sha1},                  // CALG_SHA1
    {0x800C, oids::sha256},                // CALG_SHA_256
    {0x800D, oids::sha384},                // CALG_SHA_384
    {0x800E, oids::sha512},                // CALG_SHA_512
};

} // namespace orvik::plugin::crypto::constant
