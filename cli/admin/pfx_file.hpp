#pragma once

/// Reading of PKCS#12 files (RFC 7292, R 50.1.112-2016).

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "pfx_mac.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::admin {

/// A key or a certificate with what the file says of it.
template <class Object>
struct Bag {
    Object object;
    std::string friendlyName; ///< UTF-8, often empty
    csp::Bytes localKeyId;    ///< the same for a key and its certificate, often empty
};

struct PfxContents {
    std::vector<Bag<csp::ossl::Pkcs8>> keys;
    std::vector<Bag<csp::ossl::X509Ptr>> certificates;
};

class PfxFile {
public:
    /// Nothing when the octets are no PKCS#12 file, DER or BER.
    static std::optional<PfxFile> parse(std::string_view octets);

    /// What is in the file; nothing when the password is not the file's (which one cannot tell from a damaged file).
    /// Throws cli::Failure (exit 3) for damage behind a right password, and for what is not read: files for the owner
    /// of a private key instead of a password, unknown ciphers. All the work that shows from outside is estimated
    /// before the first derivation, that of what was encrypted before the next one.
    [[nodiscard]] std::optional<PfxContents> open(Password password, WorkBudget& budget) const;

private:
    using Handle = std::unique_ptr<PKCS12, csp::ossl::Deleter<PKCS12_free>>;
    [[nodiscard]] std::uint64_t visibleWork() const;
    explicit PfxFile(Handle file) noexcept : file_(std::move(file)) {}

    Handle file_;
};

} // namespace klunortredi::admin
