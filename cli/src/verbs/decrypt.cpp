#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "console.hpp"
#include "content_ciphers.hpp"
#include "crypto/wincrypt/encrypt_data_handler.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "envelope_head.hpp"
#include "extraction.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "installed.hpp"
#include "message_octets.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "same_file.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

#include <optional>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using wincrypt::DecryptDataHandler;

constexpr std::size_t chunkSize = 1024 * 1024;
constexpr std::string_view suffix = ".p7m";
constexpr std::string_view messageLabel = "CMS";

/// FILE without .p7m.
std::string outputOf(const DecryptArguments& arguments) {
    const std::string& file = arguments.file;
    if (!arguments.out.empty()) {
        return arguments.out;
    }
    if (file == "-") {
        return "-";
    }
    if (file.size() <= suffix.size() || !text::lower(file).ends_with(suffix)) {
        throw Failure(ExitCode::usage, "cannot decrypt " + file, "its name does not end in .p7m",
                      "name the output with --out");
    }
    return file.substr(0, file.size() - suffix.size());
}

/// One message: whom it is for, the key, the plaintext.
class Decryption {
public:
    Decryption(Session& session, const DecryptArguments& arguments)
        : session_(session), arguments_(arguments), input_(arguments.file), what_("cannot decrypt " + input_.name()),
          octets_(*input_.decoded(messageLabel).rdbuf()) {}

    ExitCode run() {
        const std::string path = outputOf(arguments_);
        if (path != "-" && input_.isFile(path)) {
            throw Failure(ExitCode::usage, "cannot write " + path, "it is the message that is decrypted");
        }
        std::istream message(&octets_);
        const EnvelopeHead head = readEnvelopeHead(message, input_.name());
        input_.check();
        certificate_ = findOwnRecipient(head, storeCertificates("my"), arguments_.certificate, input_.name());
        Extraction extraction(path, session_.options.force, input_, Readers::ownerOnly);
        unlock();
        decrypt(head, message, extraction);
        checkEnd();
        extraction.commit();
        report(head, path);
        return ExitCode::done;
    }

private:
    /// Asks for the PIN before the long work.
    void unlock() {
        session_.pin.setTriesLeft([this]() -> std::optional<unsigned> {
            const auto provider = certificate_->provider(true);
            const auto container = certificate_->container();
            return provider && container ? pinTriesLeft(*provider, *container) : std::nullopt;
        });
        bool unlocked = false;
        try {
            unlocked = AuthProvider::authorize(certificate_->privateKey(), what_);
        } catch (...) {
            throw currentFailure(what_);
        }
        if (!unlocked) {
            throw session_.pin.refusal(what_);
        }
    }

    void decrypt(const EnvelopeHead& head, std::istream& rest, Extraction& extraction) {
        DecryptDataHandler::SinkParams params;
        params.certificate = certificate_;
        params.sink = [&](const unsigned char* data, std::size_t size) {
            extraction.write({reinterpret_cast<const char*>(data), size});
            size_ += size;
            return true;
        };
        try {
            DecryptDataHandler handler;
            handler.initialize(params);
            feed(head, rest, handler);
            std::vector<unsigned char> none;
            handler.finalize(none);
        } catch (const SystemException& e) {
            refuse(static_cast<std::uint32_t>(e.code().value()));
        } catch (const CryptoException& e) {
            if (e.code().value() == static_cast<int>(CryptoException::Code::decryptionFailed)) {
                refuse(wincrypt::GetLastErrorEx());
            }
            throw currentFailure(what_);
        } catch (...) {
            throw currentFailure(what_);
        }
    }

    void feed(const EnvelopeHead& head, std::istream& rest, DecryptDataHandler& handler) {
        Progress progress(session_.console.showsProgress(), "decrypting " + input_.name(), input_.size());
        input_.watch([&progress](std::uint64_t octets) { progress.advance(octets); });
        handler.update(reinterpret_cast<const unsigned char*>(head.octets.data()), head.octets.size());
        std::vector<char> chunk(chunkSize);
        while (rest.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), rest.gcount() > 0) {
            handler.update(reinterpret_cast<const unsigned char*>(chunk.data()),
                           static_cast<std::size_t>(rest.gcount()));
        }
        input_.watch({});
        input_.check();
    }

    /// The service's code in words of decryption.
    [[noreturn]] void refuse(std::uint32_t code) {
        if (code == capi::NTE_BAD_DATA || code == capi::NTE_BAD_PUBLIC_KEY) {
            throw Failure(ExitCode::no, what_, "the message was changed, or encrypted for another key", {}, code);
        }
        if (code == capi::CRYPT_E_UNKNOWN_ALGO || code == capi::NTE_BAD_ALGID) {
            throw Failure(ExitCode::service, what_, "the service does not know its cipher, or not with this key", {},
                          code);
        }
        const Failure failure = serviceFailure(what_, code);
        if (failure.exit() == ExitCode::no) {
            throw Failure(ExitCode::input, what_, refusalReason(code), {}, code);
        }
        throw failure;
    }

    /// Nothing of what follows the message was encrypted by its sender.
    void checkEnd() {
        if (octets_.tail() == Tail::octets) {
            throw Failure(ExitCode::input, what_, "octets follow the end of the message", "cut them off");
        }
    }

    void report(const EnvelopeHead& head, const std::string& path) const {
        const ContentCipher* const cipher = contentCipherByOid(head.cipherOid);
        const bool authenticated = cipher != nullptr && cipher->authenticated;
        const std::string name(cipher == nullptr ? std::string_view(head.cipherOid) : cipher->name);
        if (!authenticated) {
            session_.console.note("klunortredi: the content of " + input_.name() +
                                  " was not authenticated: it may have been changed on its way");
        }
        if (isStandardOutput(path)) {
            return; // standard output is the content's
        }
        session_.console.result({{"input", arguments_.file},
                                 {"output", path},
                                 {"cipher", name},
                                 {"authenticated", authenticated},
                                 {"bytes", size_},
                                 {"recipient",
                                  {{"subject", subjectOf(*certificate_)},
                                   {"serial", serialOf(*certificate_)},
                                   {"thumbprint", thumbprintOf(*certificate_)}}}},
                                [&](std::ostream& out) {
                                    out << printable(arguments_.file) << " -> " << printable(path) << " (" << name
                                        << ", " << size_ << " bytes), as " << titleOf(*certificate_) << '\n';
                                });
    }

    Session& session_;
    const DecryptArguments& arguments_;
    Input input_;
    std::string what_;
    MessageOctets octets_;
    CertificatePtr certificate_;
    std::uint64_t size_ = 0;
};

} // namespace

ExitCode decrypt(Session& session, const DecryptArguments& arguments) {
    return Decryption(session, arguments).run();
}

} // namespace klunortredi::cli
