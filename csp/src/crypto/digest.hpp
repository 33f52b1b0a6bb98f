#pragma once

/// Incremental hashing.

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"

namespace klunortredi::csp {

class Digest {
public:
    /// Throws ApiError(NTE_BAD_ALGID) when OpenSSL has no such method.
    explicit Digest(const DigestAlgorithm& algorithm);
    /// A copy goes on from the same state.
    Digest(const Digest& other);
    Digest& operator=(const Digest&) = delete;
    Digest(Digest&&) noexcept = default;
    Digest& operator=(Digest&&) noexcept = default;
    ~Digest() = default;

    void update(ByteView data);
    /// The value; the object takes no more data afterwards.
    Bytes finish();

    [[nodiscard]] const DigestAlgorithm& algorithm() const noexcept { return *algorithm_; }

    static Bytes of(const DigestAlgorithm& algorithm, ByteView data);

private:
    const DigestAlgorithm* algorithm_;
    ossl::MdCtx context_;
    bool empty_ = true; ///< no data came yet
};

} // namespace klunortredi::csp
