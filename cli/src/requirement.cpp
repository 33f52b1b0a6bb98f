#include "requirement.hpp"

#include "failure.hpp"
#include "public_key.hpp"

#include <algorithm>
#include <set>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr std::size_t thumbprintDigits = 40; // SHA-1
constexpr std::size_t countDigits = 4;       // more signers than any message may have

bool hasOnly(const std::string& text, const char* characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

/// Lower-case, without the colons that other programs print between octets.
std::string normalized(const std::string& word) {
    std::string text;
    for (const char c : word) {
        if (c != ':') {
            text.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
        }
    }
    return text;
}

/// The reason of one signer, numbered where there are several.
std::string reasonOf(const std::vector<Signer>& signers, const Signer& signer) {
    const auto number = static_cast<std::size_t>(&signer - signers.data()) + 1;
    return signers.size() == 1 ? signer.reason : "signer " + std::to_string(number) + ": " + signer.reason;
}

/// The reason of the first signer that counts so; empty without one.
std::string firstReason(const std::vector<Signer>& signers, const Requirement::Judge& judge, SignatureVerdict verdict) {
    const auto found =
        std::find_if(signers.begin(), signers.end(), [&](const Signer& s) { return judge(s) == verdict; });
    return found == signers.end() ? std::string{} : reasonOf(signers, *found);
}

} // namespace

bool Requirement::isThumbprint(const std::string& word) {
    const std::string text = normalized(word);
    return text.size() == thumbprintDigits && hasOnly(text, "0123456789abcdef");
}

Requirement::Requirement(const std::vector<std::string>& words, CertificatePtr given) : given_(std::move(given)) {
    for (const std::string& word : words) {
        const std::string text = normalized(word);
        if (isThumbprint(word)) {
            kind_ = Kind::named;
            thumbprints_.push_back(text);
        } else if (text == "any") {
            kind_ = Kind::count;
            count_ = 1;
        } else if (text.size() <= countDigits && hasOnly(text, "0123456789") && std::stoul(text) > 0) {
            kind_ = Kind::count;
            count_ = std::stoul(text);
        } else if (text != "all") {
            throw Failure(ExitCode::usage, "cannot use --require " + word,
                          "it is not 'all', 'any', a number of signers, or a thumbprint of 40 hexadecimal digits");
        }
    }
    if (words.size() > 1 && thumbprints_.size() != words.size()) {
        throw Failure(ExitCode::usage, "cannot use --require", "only thumbprints can be several");
    }
}

bool Requirement::names(const Signer& signer) const {
    return signer.certificate &&
           ((given_ && given_->raw() == signer.certificate->raw()) ||
            std::ranges::find(thumbprints_, thumbprintOf(*signer.certificate)) != thumbprints_.end());
}

Decision Requirement::decide(const std::vector<Signer>& signers) const {
    return decide(signers, [](const Signer& signer) { return signer.verdict; });
}

Decision Requirement::decide(const std::vector<Signer>& signers, const Judge& judge) const {
    if (signers.empty()) {
        return {SignatureVerdict::unknown, "the message carries no signature, so there is nothing to judge"};
    }
    Decision byKind = decideByKind(signers, judge);
    if (!given_ || byKind.verdict == SignatureVerdict::invalid) {
        return byKind;
    }
    Decision given = decideGiven(signers, judge);
    return given.verdict == SignatureVerdict::valid ? byKind : given;
}

/// Others may have signed too, and `any` may do with them: who names a certificate asks about its signature.
Decision Requirement::decideGiven(const std::vector<Signer>& signers, const Judge& judge) const {
    const auto isGiven = [octets = given_->raw()](const Signer& signer) {
        return signer.certificate && signer.certificate->raw() == octets;
    };
    const auto found = std::ranges::find_if(signers, isGiven);
    if (found == signers.end()) {
        return {SignatureVerdict::unknown, notOfASigner};
    }
    const bool isMet = std::ranges::any_of(
        signers, [&](const Signer& s) { return isGiven(s) && judge(s) == SignatureVerdict::valid; });
    return isMet ? Decision{SignatureVerdict::valid, {}} : Decision{judge(*found), reasonOf(signers, *found)};
}

Decision Requirement::decideByKind(const std::vector<Signer>& signers, const Judge& judge) const {
    switch (kind_) {
    case Kind::count:
        return decideCount(signers, judge);
    case Kind::named:
        return decideNamed(signers, judge);
    default:
        return decideAll(signers, judge);
    }
}

Decision Requirement::decideAll(const std::vector<Signer>& signers, const Judge& judge) const {
    for (const SignatureVerdict verdict : {SignatureVerdict::invalid, SignatureVerdict::unknown}) {
        if (std::any_of(signers.begin(), signers.end(), [&](const Signer& s) { return judge(s) == verdict; })) {
            return {verdict, firstReason(signers, judge, verdict)};
        }
    }
    return {SignatureVerdict::valid, {}};
}

Decision Requirement::decideCount(const std::vector<Signer>& signers, const Judge& judge) const {
    std::set<std::string> keys;
    std::size_t unknown = 0;
    for (const Signer& signer : signers) {
        const SignatureVerdict verdict = judge(signer);
        if (verdict == SignatureVerdict::valid && signer.certificate) {
            keys.insert(keyIdentity(*signer.certificate));
        }
        unknown += verdict == SignatureVerdict::unknown ? 1 : 0;
    }
    if (keys.size() >= count_) {
        return {SignatureVerdict::valid, {}};
    }
    const SignatureVerdict verdict =
        keys.size() + unknown >= count_ ? SignatureVerdict::unknown : SignatureVerdict::invalid;
    const std::string first = firstReason(signers, judge, verdict);
    return {verdict, std::to_string(keys.size()) + " of the " + std::to_string(count_) + " required signers are valid" +
                         (first.empty() ? "" : " (" + first + ")")};
}

Decision Requirement::decideNamed(const std::vector<Signer>& signers, const Judge& judge) const {
    Decision decision{SignatureVerdict::valid, {}};
    for (const std::string& thumbprint : thumbprints_) {
        const auto isNamed = [&](const Signer& s) {
            return s.certificate && thumbprintOf(*s.certificate) == thumbprint;
        };
        const auto isMet = [&](const Signer& s) { return isNamed(s) && judge(s) == SignatureVerdict::valid; };
        if (std::any_of(signers.begin(), signers.end(), isMet)) {
            continue;
        }
        // A signer whose certificate is missing may be the one that is required.
        const bool open = std::any_of(signers.begin(), signers.end(), [&](const Signer& s) {
            return judge(s) == SignatureVerdict::unknown && (isNamed(s) || !s.certificate);
        });
        const auto named = std::find_if(signers.begin(), signers.end(), isNamed);
        const std::string reason = "required signer " + thumbprint + ": " +
                                   (named == signers.end() ? "it is not among the signers" : named->reason);
        if (!open) {
            return {SignatureVerdict::invalid, reason};
        }
        decision = {SignatureVerdict::unknown, reason};
    }
    return decision;
}

} // namespace klunortredi::cli
