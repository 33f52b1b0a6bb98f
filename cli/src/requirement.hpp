#pragma once

/// Which signers of a document must be valid (`--require`, `--signer-cert`).

#include "signers.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// What the signers together amount to.
struct Decision {
    SignatureVerdict verdict;
    std::string reason; ///< empty when valid
};

class Requirement {
public:
    /// "all" (also without any word), "any", a number, or thumbprints (SHA-1, 40 hexadecimal digits; colons are
    /// ignored). Throws Failure (usage) for anything else, and for several words that are not all thumbprints. A signer
    /// with the certificate `given` is required besides, unless it is null.
    Requirement(const std::vector<std::string>& words, CertificatePtr given);

    /// Whether the word is a thumbprint.
    [[nodiscard]] static bool isThumbprint(const std::string& word);

    /// Whether the signer's certificate is one of those named or given.
    [[nodiscard]] bool names(const Signer& signer) const;

    /// What a signer counts as.
    using Judge = std::function<SignatureVerdict(const Signer&)>;

    /// Valid: the signers that are required count as valid. Unknown: they might, if more were known. Invalid: they
    /// cannot. Signers of one key count once; a document without signers is unknown.
    [[nodiscard]] Decision decide(const std::vector<Signer>& signers, const Judge& judge) const;
    /// The same by the signatures alone.
    [[nodiscard]] Decision decide(const std::vector<Signer>& signers) const;

private:
    enum class Kind { all, count, named };

    [[nodiscard]] Decision decideByKind(const std::vector<Signer>& signers, const Judge& judge) const;
    [[nodiscard]] Decision decideGiven(const std::vector<Signer>& signers, const Judge& judge) const;
    [[nodiscard]] Decision decideAll(const std::vector<Signer>& signers, const Judge& judge) const;
    [[nodiscard]] Decision decideCount(const std::vector<Signer>& signers, const Judge& judge) const;
    [[nodiscard]] Decision decideNamed(const std::vector<Signer>& signers, const Judge& judge) const;

    Kind kind_ = Kind::all;
    std::size_t count_ = 0;
    std::vector<std::string> thumbprints_;
    CertificatePtr given_;
};

} // namespace klunortredi::cli
