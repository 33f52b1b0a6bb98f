#include "token_rules.hpp"

#include "authority.hpp"
#include "hashing.hpp"
#include "named_certificate.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_recipients.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/weak_algorithms.hpp"
#include "orvik/plugin/hex.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

namespace orvik::plugin::timestamp_glue {

namespace {

using Result = TimestampVerdict::Result;
using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using wincrypt::tools::SignatureVerdict;

constexpr DWORD tstInfoVersion = 1;
/// Certificates beside a token with the issuer and serial number of its authority that are compared with it. An issuer
/// gives a serial number once; whoever has the message can add thousands, and each costs two digests.
constexpr std::size_t mostOfOneName = 16;

/// Ends the judgement.
struct Ended {
    Result result;
    std::string reason;
};

[[noreturn]] void refuse(std::string reason) {
    throw Ended{Result::invalid, std::move(reason)};
}

[[noreturn]] void notKnown(std::string reason) {
    throw Ended{Result::unknown, std::move(reason)};
}

std::string codeText(unsigned code) {
    constexpr unsigned octetBits = 8;
    std::string octets;
    for (unsigned shift = 4 * octetBits; shift != 0; shift -= octetBits) {
        octets += static_cast<char>(code >> (shift - octetBits));
    }
    return "0x" + hex::encode(octets);
}

/// Anybody can make what depends on a broken digest.
void refuseBroken(const std::string& digestOid) {
    for (const crypto::Weakness& weakness : crypto::weaknesses({digestOid, {}, 0}, {})) {
        if (weakness.level == crypto::WeaknessLevel::never) {
            refuse(std::string("it depends on the ") + weakness.name + ", which is broken");
        }
    }
}

void describe(TimestampVerdict& verdict, const Token& token) {
    const CRYPT_TIMESTAMP_INFO& info = token.info();
    const boost::string_view serial = view(info.SerialNumber);
    verdict.time = wincrypt::converter::to_ptime(info.ftTime);
    verdict.policy = info.pszTSAPolicyId;
    verdict.serialNumber = hex::encode(std::string(serial.rbegin(), serial.rend()));
    verdict.imprintAlgorithm = info.HashAlgorithm.pszObjId;
    verdict.digestAlgorithm = token.digestAlgorithm();
    verdict.certificates = token.certificates();
    verdict.crls = token.crls();
}

/// The form of the TSTInfo (RFC 3161, 2.4.2).
void checkInfo(const CRYPT_TIMESTAMP_INFO& info) {
    if (info.dwVersion != tstInfoVersion) {
        refuse("its version is " + std::to_string(info.dwVersion) + ", not 1");
    }
    const auto extensions = std::span(info.rgExtension, info.cExtension);
    if (std::any_of(extensions.begin(), extensions.end(), [](const CERT_EXTENSION& e) { return e.fCritical != 0; })) {
        refuse("it has a critical extension that is not known");
    }
}

void checkAnswers(const CRYPT_TIMESTAMP_INFO& info, const Asked& asked) {
    if (view(info.Nonce) != asked.nonce) {
        refuse("its nonce is not that of the request");
    }
    if (info.HashAlgorithm.pszObjId != asked.digestOid) {
        refuse("the algorithm of its imprint is not that of the request");
    }
}

void checkImprint(const CRYPT_TIMESTAMP_INFO& info, boost::string_view octets) {
    refuseBroken(info.HashAlgorithm.pszObjId);
    if (hashOf(info.HashAlgorithm.pszObjId, octets) != view(info.HashedMessage)) {
        refuse("it is for something else: its imprint does not match");
    }
}

/// Certificates beside the token. Where they cannot be had, nothing is known of it.
auto certificatesBeside(const CertificateSource& outside) {
    try {
        return outside();
    } catch (const SystemException& e) {
        notKnown("the certificates at hand cannot be read (" + codeText(static_cast<unsigned>(e.code().value())) + ")");
    }
}

/// The verdict under a certificate beside the token. Who has the message can put certificates into it: only one that
/// the token's signed attributes name, and under which its signature holds, counts.
std::optional<wincrypt::tools::SignerVerdict> judgeBeside(const Token& token, const CertificateSource& outside) {
    const std::string id = wincrypt::tools::certInfo(token.message(), 0);
    const auto signer = wincrypt::tools::recipientName(*reinterpret_cast<const CERT_INFO*>(id.data()));
    std::size_t compared = 0;
    for (const auto& candidate : certificatesBeside(outside)) {
        if (!wincrypt::tools::isNamed(signer, *candidate)) {
            continue;
        }
        if (++compared > mostOfOneName) {
            notKnown("more than " + std::to_string(mostOfOneName) + " certificates at hand have its authority's name");
        }
        if (namesCertificate(token, candidate->raw()) != Naming::named) {
            continue;
        }
        auto judged = wincrypt::tools::judgeSigners(token.message(), candidate);
        if (judged.size() == 1 && judged.front().verdict == SignatureVerdict::valid) {
            return judged.front();
        }
    }
    return std::nullopt;
}

/// The signature of the token's one signer, under a certificate that the token carries, else one beside it.
void checkSignature(TimestampVerdict& verdict, const Token& token, bool callerVerifies,
                    const CertificateSource& outside) {
    auto signers = wincrypt::tools::judgeSigners(token.message(), {});
    if (signers.size() == 1 && !signers.front().certificate && outside) {
        signers.front() = judgeBeside(token, outside).value_or(signers.front());
    }
    if (signers.size() != 1) {
        refuse(signers.empty() ? "it is not signed" : "it has several signatures");
    }
    const auto& signer = signers.front();
    verdict.authority = signer.certificate;
    if (!verdict.authority) {
        notKnown(outside ? "the authority's certificate is neither in it nor at hand"
                         : "the authority's certificate is not in it");
    }
    refuseBroken(verdict.digestAlgorithm);
    const bool byIndex = signer.code != capi::CRYPT_E_CONTROL_TYPE;
    if (signer.verdict == SignatureVerdict::invalid) {
        refuse("its signature is not valid (" + codeText(signer.code) + ")");
    }
    if (signer.verdict == SignatureVerdict::unknown && (byIndex || !callerVerifies)) {
        notKnown("its signature could not be judged (" + codeText(signer.code) + ")");
    }
}

void checkAuthority(const TimestampVerdict& verdict, const Token& token) {
    const std::string reason = refusalOf(*verdict.authority, verdict.time);
    if (!reason.empty()) {
        refuse(reason);
    }
    switch (namesCertificate(token, verdict.authority->raw())) {
    case Naming::named:
        return;
    case Naming::other:
        refuse("it names another certificate than the one that verifies it");
    case Naming::missing:
        refuse("it does not name its certificate among its signed attributes");
    }
}

void judge(TimestampVerdict& verdict, boost::string_view octetsOfToken, boost::string_view octets,
           const std::optional<Asked>& asked, const CertificateSource& outside) {
    if (octetsOfToken.size() > largestToken) {
        notKnown("it is larger than " + std::to_string(largestToken) + " octets");
    }
    const Token token(octetsOfToken);
    if (!token.isTimestamp()) {
        refuse("it is not a time-stamp");
    }
    describe(verdict, token);
    checkInfo(token.info());
    if (asked) {
        checkAnswers(token.info(), *asked);
    }
    checkImprint(token.info(), octets);
    checkSignature(verdict, token, asked.has_value(), outside);
    checkAuthority(verdict, token);
}

/// What cannot be read as a message is not a time-stamp; everything else is the service's failure.
Ended ofService(unsigned code) {
    constexpr unsigned encodings = 0x80093100;
    constexpr unsigned range = 0xFFFFFF00;
    const bool unreadable = (code & range) == encodings || code == capi::CRYPT_E_INVALID_MSG_TYPE;
    return unreadable ? Ended{Result::invalid, "it cannot be read (" + codeText(code) + ")"}
                      : Ended{Result::unknown, "the service failed (" + codeText(code) + ")"};
}

} // namespace

TimestampVerdict judgeToken(boost::string_view token, boost::string_view octets, const std::optional<Asked>& asked,
                            const CertificateSource& outside) {
    TimestampVerdict verdict;
    Ended ended{Result::valid, {}};
    try {
        judge(verdict, token, octets, asked, outside);
    } catch (const Ended& reached) {
        ended = reached;
    } catch (const SystemException& e) {
        ended = ofService(static_cast<unsigned>(e.code().value()));
    } catch (const CryptoException& e) {
        ended = {Result::unknown, e.what()};
    }
    verdict.result = ended.result;
    verdict.reason = std::move(ended.reason);
    return verdict;
}

} // namespace orvik::plugin::timestamp_glue
