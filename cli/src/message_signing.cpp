#include "message_signing.hpp"

#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/signature_creator.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "installed.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "pin.hpp"
#include "progress.hpp"
#include "text.hpp"
#include "verbs/verbs.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <cstdint>
#include <istream>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr const char* rsassaPss = "1.2.840.113549.1.1.10";

/// Who verifies the signature later sees when it was made at the earliest by a time-stamp, or not at all.
void checkValidity(const Session& session, const orvik::plugin::crypto::ICertificate& certificate, bool strict) {
    const auto now = boost::posix_time::second_clock::universal_time();
    const auto from = certificate.notBefore();
    const auto to = certificate.notAfter();
    std::string trouble;
    if (!from.is_special() && now < from) {
        trouble = "the signer's certificate is not valid before " + text::time(from);
    } else if (!to.is_special() && now > to) {
        trouble = "the signer's certificate expired at " + text::time(to);
    }
    if (trouble.empty()) {
        return;
    }
    if (strict) {
        throw Failure(ExitCode::service, "cannot sign", trouble, "choose another, or sign without --strict");
    }
    session.console.note("klunortredi: warning: " + trouble);
}

/// Of several certificates of one subject, as after a renewal, the only one that is valid now and has a key.
CertificatePtr signerCertificate(const Session& session, const std::string& which) {
    const auto found = matchingInStore("my", which);
    const bool oneSubject = std::ranges::all_of(
        found, [&](const CertificatePtr& one) { return one->subject() == found.front()->subject(); });
    if (found.size() == 1 || !oneSubject) {
        return onlyCertificate(found, which);
    }
    const auto now = boost::posix_time::second_clock::universal_time();
    std::vector<CertificatePtr> usable;
    std::ranges::copy_if(found, std::back_inserter(usable), [&](const CertificatePtr& one) {
        return one->container() && one->notBefore() <= now && now <= one->notAfter();
    });
    const CertificatePtr chosen = onlyCertificate(usable.empty() ? found : usable, which);
    session.console.note("klunortredi: " + std::to_string(found.size()) + " certificates match; signing with " +
                         thumbprintOf(*chosen).substr(0, 8) + ", the only one that is valid now and has a key");
    return chosen;
}

} // namespace

SignerChoice chooseSigner(const Session& session, const SignerArguments& arguments) {
    SignerChoice signer;
    signer.certificate = signerCertificate(session, arguments.certificate);
    signer.byKeyIdentifier = arguments.byKeyIdentifier;
    signer.pss = arguments.pss;
    checkValidity(session, *signer.certificate, arguments.strict);
    session.pin.setTriesLeft([certificate = signer.certificate]() -> std::optional<unsigned> {
        const auto provider = certificate->provider(true);
        const auto container = certificate->container();
        return provider && container ? pinTriesLeft(*provider, *container) : std::nullopt;
    });
    return signer;
}

void feed(const Session& session, Input& input, orvik::plugin::IDataHandler& handler, const std::string& what) {
    constexpr std::uint64_t largestChunk = std::uint64_t{1} << 20U;
    // A small file needs no more than itself and an octet by which it is seen to grow; a pipe has no size.
    const auto chunkSize =
        static_cast<std::size_t>(input.size() == 0 ? largestChunk : std::min(input.size() + 1, largestChunk));
    Progress progress(session.console.showsProgress(), "signing " + input.name(), input.size());
    input.watch([&progress](std::uint64_t octets) { progress.advance(octets); });
    const auto chunk = std::make_unique_for_overwrite<char[]>(chunkSize);
    std::istream& stream = input.raw();
    std::uint64_t read = 0;
    const auto check = [&](bool changed) {
        if (changed && input.size() != 0) { // a message whose length was announced holds no other content
            throw Failure(ExitCode::input, what, "it changed while it was read");
        }
    };
    while (stream.read(chunk.get(), static_cast<std::streamsize>(chunkSize)), stream.gcount() > 0) {
        const auto size = static_cast<std::size_t>(stream.gcount());
        read += size;
        check(read > input.size());
        handler.update(reinterpret_cast<const unsigned char*>(chunk.get()), size);
    }
    input.watch({});
    input.check();
    check(read != input.size());
}

MessageSigning::MessageSigning(Session& session, const SignerChoice& signer,
                               std::unique_ptr<orvik::plugin::IDataHandler> creator, std::string what)
    : session_(session), signer_(signer), creator_(std::move(creator)), what_(std::move(what)) {}

void MessageSigning::open(Output output, std::uint64_t contentSize) {
    output_ = std::move(output);
    orvik::plugin::wincrypt::binary::ExtendedParams params;
    params.certificate = signer_.certificate;
    params.attributes = signer_.attributes;
    params.issuers = signer_.issuers;
    params.byKeyIdentifier = signer_.byKeyIdentifier;
    params.signatureAlgorithm = signer_.pss ? rsassaPss : "";
    if (contentSize != 0) {
        params.contentSize = contentSize;
    }
    params.sink = [this](const unsigned char* data, std::size_t size) {
        output_({reinterpret_cast<const char*>(data), size});
        return true;
    };
    creator_->initialize(params);
    authorize();
}

void MessageSigning::authorize() const {
    if (!orvik::plugin::crypto::AuthProvider::authorize(signer_.certificate->privateKey(), "")) {
        throw session_.pin.refusal(what_);
    }
}

void MessageSigning::take(std::string_view octets) {
    if (octets.empty()) {
        return; // without data the creator lets go of the octet that it holds back, and has none to end with
    }
    creator_->update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
}

void MessageSigning::take(Input& input) {
    feed(session_, input, *creator_, what_);
}

void MessageSigning::finish() {
    std::vector<unsigned char> nothing; // the output has it all
    if (!creator_->finalize(nothing)) {
        throw session_.pin.refusal(what_);
    }
}

} // namespace klunortredi::cli
