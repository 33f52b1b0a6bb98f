#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "console.hpp"
#include "content_ciphers.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "options.hpp"
#include "orvik/plugin/base64.hpp"
#include "output_file.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "recipients.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <optional>
#include <set>
#include <utility>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using Json = nlohmann::ordered_json;

constexpr std::size_t chunkSize = 1024 * 1024;

/// The message on its way from the service to the output. Stays where it was made.
class MessageOutput {
public:
    MessageOutput(OutputFile& file, bool pem) : file_(file), pem_(pem) {
        if (pem_) {
            write("-----BEGIN CMS-----\n");
        }
    }
    MessageOutput(const MessageOutput&) = delete;
    MessageOutput& operator=(const MessageOutput&) = delete;
    ~MessageOutput() = default;

    [[nodiscard]] CMSG_STREAM_INFO stream(DWORD contentSize) { return {contentSize, take, this}; }
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    /// What is left once the whole message is there.
    void finish() {
        if (pem_) {
            writeLines(rest_);
            write("-----END CMS-----\n");
        }
    }
    /// Throws what writing has thrown, if it has.
    void rethrow() {
        if (failure_) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
    }

private:
    static BOOL take(const void* argument, BYTE* data, DWORD size, BOOL /*final*/) {
        auto& self = *static_cast<MessageOutput*>(const_cast<void*>(argument));
        try {
            self.add({reinterpret_cast<const char*>(data), size});
            return 1;
        } catch (...) { // the service's frames lie in between
            self.failure_ = std::current_exception();
            return 0;
        }
    }

    void add(std::string_view der) {
        if (!pem_) {
            write(der);
            return;
        }
        rest_ += der;
        const std::size_t whole = rest_.size() - rest_.size() % lineOctets;
        writeLines(std::string_view(rest_).substr(0, whole));
        rest_.erase(0, whole);
    }
    void writeLines(std::string_view der) {
        for (; !der.empty(); der.remove_prefix(std::min(der.size(), lineOctets))) {
            const auto line = der.substr(0, lineOctets);
            write(orvik::plugin::base64::encode({line.data(), line.size()}) + "\n");
        }
    }
    void write(std::string_view octets) {
        file_.write(octets);
        size_ += octets.size();
    }

    static constexpr std::size_t lineOctets = 48; ///< 64 characters (RFC 7468)

    OutputFile& file_;
    bool pem_;
    std::string rest_; ///< octets that do not fill a line yet
    std::uint64_t size_ = 0;
    std::exception_ptr failure_;
};

/// Opens a message for the recipients; null when the service refuses. What it is described with is not needed longer.
void* openMessage(const std::vector<CertificatePtr>& recipients, const ContentCipher& cipher,
                  CMSG_STREAM_INFO& stream) {
    std::vector<CERT_INFO*> certificates;
    for (const auto& recipient : recipients) {
        certificates.push_back(wincrypt::tools::toPCCERT_CONTEXT(recipient->context())->pCertInfo);
    }
    std::string oid(cipher.oid);
    CMSG_ENVELOPED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.ContentEncryptionAlgorithm.pszObjId = oid.data();
    info.cRecipients = static_cast<DWORD>(certificates.size());
    info.rgpRecipients = certificates.data();
    return wincrypt::CryptMsgOpenToEncode(capi::X509_AND_PKCS_7, 0, capi::CMSG_ENVELOPED, &info, nullptr, &stream);
}

/// The size that makes a message of definite lengths, where it is known and fits.
DWORD contentSizeOf(const Input& input) {
    return input.size() != 0 && input.size() < capi::CMSG_INDEFINITE_LENGTH ? static_cast<DWORD>(input.size())
                                                                            : capi::CMSG_INDEFINITE_LENGTH;
}

void update(void* message, MessageOutput& output, const char* data, std::size_t size, bool final,
            const std::string& what) {
    if (wincrypt::CryptMsgUpdate(message, reinterpret_cast<const BYTE*>(data), static_cast<DWORD>(size),
                                 final ? 1 : 0) == 0) {
        const auto code = wincrypt::GetLastErrorEx();
        output.rethrow();
        if (code == capi::CRYPT_E_BAD_LEN) {
            throw Failure(ExitCode::input, what, "the file changed while it was read", {}, code);
        }
        throw serviceFailure(what, code);
    }
}

/// Refuses a certificate that is not fit for encryption; where the user means it, warns.
void checkFitness(const Session& session, const orvik::plugin::crypto::ICertificate& certificate, bool meant) {
    const std::string why = unfitnessToEncryptFor(certificate);
    if (why.empty()) {
        return;
    }
    if (!meant) {
        throw Failure(ExitCode::service, "cannot encrypt for " + titleOf(certificate), why,
                      "--any-certificate encrypts nevertheless");
    }
    session.console.note("klunortredi: warning: " + titleOf(certificate) + ": " + why);
}

/// Every recipient once, fit for encryption.
std::vector<CertificatePtr> recipientsOf(const Session& session, const EncryptArguments& arguments) {
    std::vector<CertificatePtr> recipients;
    std::set<std::string> seen;
    for (const std::string& to : arguments.to) {
        auto certificate = findRecipient(to);
        checkFitness(session, *certificate, arguments.anyCertificate);
        if (seen.insert(thumbprintOf(*certificate)).second) {
            recipients.push_back(std::move(certificate));
        }
    }
    return recipients;
}

std::uint64_t encryptInto(Session& session, OutputFile& out, Input& input,
                          const std::vector<CertificatePtr>& recipients, const ContentCipher& cipher) {
    const std::string what = "cannot encrypt " + input.name();
    MessageOutput output(out, session.options.pem);
    CMSG_STREAM_INFO stream = output.stream(contentSizeOf(input));
    wincrypt::HCRYPTMSG message;
    *message.put() = openMessage(recipients, cipher, stream);
    if (!message) {
        throw serviceFailure(what, wincrypt::GetLastErrorEx());
    }
    Progress progress(session.console.showsProgress(), "encrypting " + input.name(), input.size());
    input.watch([&progress](std::uint64_t octets) { progress.advance(octets); });
    std::vector<char> chunk(chunkSize);
    std::istream& content = input.raw();
    while (content.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), content.gcount() > 0) {
        update(message.get(), output, chunk.data(), static_cast<std::size_t>(content.gcount()), false, what);
    }
    input.watch({});
    input.check();
    update(message.get(), output, nullptr, 0, true, what);
    output.finish();
    return output.size();
}

} // namespace

ExitCode encrypt(Session& session, const EncryptArguments& arguments) {
    const auto recipients = recipientsOf(session, arguments);
    const ContentCipher& cipher = chooseCipher(recipients, arguments.cipher);
    Input input(arguments.file);
    std::string path = arguments.out;
    if (path.empty()) {
        path = arguments.file == "-" ? "-" : arguments.file + ".p7m";
    }
    if (path != "-" && input.isFile(path)) {
        throw Failure(ExitCode::usage, "cannot write " + path, "it is the file that is encrypted");
    }
    OutputFile out(path, session.options.force);
    const std::uint64_t size = encryptInto(session, out, input, recipients, cipher);
    out.commit();
    if (path == "-") {
        return ExitCode::done; // standard output is the message's
    }
    Json list = Json::array();
    std::string names;
    for (const auto& recipient : recipients) {
        list.push_back({{"subject", subjectOf(*recipient)},
                        {"serial", serialOf(*recipient)},
                        {"thumbprint", thumbprintOf(*recipient)}});
        names += (names.empty() ? "" : "; ") + titleOf(*recipient);
    }
    session.console.result({{"input", arguments.file},
                            {"output", path},
                            {"cipher", cipher.name},
                            {"authenticated", cipher.authenticated},
                            {"bytes", size},
                            {"recipients", list}},
                           [&](std::ostream& text) {
                               text << printable(arguments.file) << " -> " << printable(path) << " (" << cipher.name
                                    << ", " << size << " bytes), for " << names << '\n';
                           });
    return ExitCode::done;
}

} // namespace klunortredi::cli
