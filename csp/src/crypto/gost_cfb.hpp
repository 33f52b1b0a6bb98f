#pragma once

/// GOST 28147-89 in CFB (RFC 5830, 7) with CryptoPro key meshing (RFC 4357, 2.3.2).

#include "crypto/gost28147.hpp"

#include <cstdint>
#include <span>

namespace klunortredi::csp {

/// One direction of one stream: call only `encrypt` or only `decrypt`. Not thread-safe.
///
/// Every 1,024 octets the key is meshed. The test parameter set has no meshing in RFC 4357, and programs differ in
/// it: after 1,024 octets it is refused with ApiError(NTE_BAD_ALGID).
class GostCfb {
public:
    GostCfb(const Gost28147ParamSet& set, GostKeyView key, const Gost28147::Block& iv);
    GostCfb(const GostCfb&) = delete;
    GostCfb& operator=(const GostCfb&) = delete;
    ~GostCfb();

    /// In place, any number of octets.
    void encrypt(std::span<std::uint8_t> data);
    void decrypt(std::span<std::uint8_t> data);

private:
    void meshIfDue();
    void nextGamma();
    std::size_t decryptBlocks(std::span<std::uint8_t> data);

    Gost28147 cipher_;
    const bool test_;
    Gost28147::Block register_;
    Gost28147::Block gamma_{};
    std::size_t used_ = Gost28147::blockSize; ///< octets of `gamma_` that are used up
    std::size_t sinceMeshing_ = 0;
};

} // namespace klunortredi::csp
