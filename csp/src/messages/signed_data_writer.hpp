#pragma once

/// The octets of a SignedData message around its content (RFC 5652, 5.1).

#include "core/bytes.hpp"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

class SignedDataWriter {
public:
    /// `signersByKeyIdentifier`: whether a SignerInfo names its signer so, which the message's version depends on.
    SignedDataWriter(std::string_view contentType, bool signersByKeyIdentifier, std::vector<Bytes> digestAlgorithms,
                     std::vector<Bytes> certificates, std::vector<Bytes> crls);

    /// DER up to the content's first octet. `contentSize`: nothing for a message without content. `signersSize`:
    /// octets of all SignerInfos.
    [[nodiscard]] Bytes definiteHead(std::optional<std::uint64_t> contentSize, std::uint64_t signersSize) const;
    [[nodiscard]] Bytes definiteTail(const std::vector<Bytes>& signerInfos) const;

    /// BER with indefinite lengths: between head and tail stand OCTET STRINGs, the segments of the content.
    [[nodiscard]] Bytes streamHead() const;
    [[nodiscard]] Bytes streamTail(const std::vector<Bytes>& signerInfos) const;

    [[nodiscard]] const std::vector<Bytes>& certificates() const noexcept { return certificates_; }
    [[nodiscard]] const std::vector<Bytes>& crls() const noexcept { return crls_; }

private:
    Bytes contentType_;
    Bytes versionAndDigests_;
    std::vector<Bytes> certificates_;
    std::vector<Bytes> crls_;
    Bytes revocation_; ///< certificates and CRLs as the message carries them
};

} // namespace klunortredi::csp
