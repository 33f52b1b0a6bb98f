#include "verbs/verbs.hpp"

#include "cms_verification.hpp"
#include "console.hpp"
#include "crypto/wincrypt/signature_creator.hpp"
#include "crypto/wincrypt/tools_signers.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "message_signing.hpp"
#include "options.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "printable.hpp"
#include "signature_shape.hpp"
#include "signing_certificate.hpp"
#include "spool.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <optional>

namespace klunortredi::cli {

namespace {

namespace binary = orvik::plugin::wincrypt::binary;
using Json = nlohmann::ordered_json;

constexpr std::size_t headSize = 4096; // octets of a message that tell its shape

/// The message that gets a signer, as a file of BER or DER that can be read twice: the caller's own file, or a copy of
/// what came as PEM, as Base64 or through a pipe.
class MessageFile {
public:
    explicit MessageFile(const std::string& file) : path_(file) {
        Input input(file);
        std::istream& octets = input.decoded();
        if (input.peek(1).empty()) {
            input.check();
            throw Failure(ExitCode::input, "cannot add a signature to " + input.name(), "it is empty");
        }
        label_ = input.label();
        if (input.size() == 0 || input.armoured() || file == "-") {
            copy(octets);
            input.check();
        }
    }

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// Label of its PEM block; empty for another form.
    [[nodiscard]] const std::string& label() const noexcept { return label_; }

private:
    void copy(std::istream& octets) {
        constexpr std::size_t chunkSize = 1024 * 1024;
        spool_.emplace();
        std::string chunk(chunkSize, '\0');
        while (octets.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), octets.gcount() > 0) {
            spool_->write({chunk.data(), static_cast<std::size_t>(octets.gcount())});
        }
        path_ = spool_->path();
    }

    std::string path_;
    std::string label_;
    std::optional<Spool> spool_;
};

class Cosigning {
public:
    Cosigning(Session& session, const CosignArguments& arguments)
        : session_(session), arguments_(arguments), what_("cannot add a signature to " + arguments.file) {
        signer_ = chooseSigner(session, arguments.signer);
        if (!arguments.signer.noSigningCertificate) {
            nameSigningCertificate(signer_.attributes, *signer_.certificate);
        }
    }

    Json run() {
        const MessageFile message(arguments_.file);
        OutputFile out(outputPath(), session_.options.force || arguments_.out.empty());
        MessageSigning signing(session_, signer_, std::make_unique<binary::detached::Creator>(), what_);
        signing.open(
            [this](std::string_view octets) {
                added_ += octets; // a message without content: a few KiB
            },
            0);
        verifyAndSign(message, signing);
        signing.finish();
        write(message, out);
        out.commit();
        return {{"input", arguments_.file},
                {"output", out.path()},
                {"format", verdict_.format},
                {"bytes", out.size()},
                {"signers", verdict_.signers.size() + 1}};
    }

    [[nodiscard]] const SignerChoice& signer() const { return signer_; }

private:
    [[nodiscard]] std::string outputPath() const { return arguments_.out.empty() ? arguments_.file : arguments_.out; }

    /// Judges the signatures that are there while the new one's hash is made of the same octets.
    void verifyAndSign(const MessageFile& message, MessageSigning& signing) {
        Input input(message.path());
        input.decoded();
        if (const std::string other = otherMessage(input.peek(headSize)); !other.empty()) {
            throw Failure(ExitCode::input, what_, other);
        }
        const bool detached = signatureShape(input.peek(headSize)) == SignatureShape::detached;
        VerifyArguments verification;
        verification.content = detached ? contentPath() : arguments_.content;
        CmsVerification check(session_, verification, input, detached, nullptr);
        if (!detached) {
            check.watchContent([&signing](std::string_view octets) { signing.take(octets); });
        }
        verdict_ = check.run();
        requireGood();
        if (detached) {
            Input content(verification.content);
            signing.take(content);
        }
    }

    [[nodiscard]] std::string contentPath() const {
        const std::string path =
            arguments_.content.empty() ? CmsVerification::contentBeside(arguments_.file) : arguments_.content;
        if (path.empty()) {
            throw Failure(ExitCode::input, what_, "it is detached, and its content is not beside it",
                          "name the content with --content");
        }
        return path;
    }

    /// A new signature vouches for the content; next to a forged one it would lend it weight.
    void requireGood() const {
        if (verdict_.verdict == SignatureVerdict::invalid) {
            throw Failure(ExitCode::no, what_, verdict_.reason);
        }
        bool anyValid = false;
        for (const Signer& signer : verdict_.signers) {
            if (signer.verdict == SignatureVerdict::invalid) {
                throw Failure(ExitCode::no, what_, "a signature that it carries is invalid: " + signer.reason);
            }
            anyValid = anyValid || signer.verdict == SignatureVerdict::valid;
        }
        if (verdict_.signers.empty()) {
            throw Failure(ExitCode::no, what_, "it carries no signature", "use 'klunortredi sign'");
        }
        if (!anyValid) {
            throw Failure(ExitCode::service, what_, "none of its signatures can be judged", "see 'klunortredi verify'");
        }
        if (isSigner(*signer_.certificate, verdict_.signers) && !session_.options.force) {
            throw Failure(ExitCode::no, what_, "the certificate's signature is there already", "--force adds another");
        }
    }

    void write(const MessageFile& message, OutputFile& out) const {
        std::ifstream in(message.path(), std::ios::binary);
        const auto plain = [&out](std::string_view octets) { out.write(octets); };
        const bool keepsForm = arguments_.out.empty() && !message.label().empty();
        if (session_.options.pem || keepsForm) {
            PemWriter pem(plain, keepsForm ? message.label() : "CMS");
            add(in, [&pem](std::string_view octets) { pem.write(octets); });
            pem.finish();
        } else {
            add(in, plain);
        }
    }

    void add(std::istream& in, const MessageSigning::Output& output) const {
        orvik::plugin::wincrypt::tools::addSigners(in, added_, [&output](const unsigned char* data, std::size_t size) {
            output({reinterpret_cast<const char*>(data), size});
            return true;
        });
    }

    Session& session_;
    const CosignArguments& arguments_;
    std::string what_;
    SignerChoice signer_;
    Verdict verdict_;
    std::string added_;
};

} // namespace

ExitCode cosign(Session& session, const CosignArguments& arguments) {
    Cosigning cosigning(session, arguments);
    Json file;
    try {
        file = cosigning.run();
    } catch (...) {
        throw currentFailure("cannot add a signature to " + arguments.file);
    }
    if (file["output"] == "-") {
        return ExitCode::done; // standard output is the message's
    }
    session.console.result({{"files", Json::array({file})}}, [&](std::ostream& out) {
        out << printable(arguments.file) << " -> " << printable(file["output"].get<std::string>()) << " ("
            << file["format"].get<std::string>() << ", " << file["bytes"] << " bytes, " << file["signers"]
            << " signers), signed by " << titleOf(*cosigning.signer().certificate) << '\n';
    });
    return ExitCode::done;
}

} // namespace klunortredi::cli
