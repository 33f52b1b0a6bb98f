#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/signature_creator.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "output_file.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "text.hpp"
#include "trust.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <nlohmann/json.hpp>

#include <set>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::FileInfo;
using orvik::plugin::crypto::SignatureFactory;
using orvik::plugin::crypto::format::SignatureRequest;

constexpr std::size_t chunkSize = 1024 * 1024;

/// "OID=TYPE:VALUE" into its three texts.
SignatureRequest::Attribute parseAttribute(const std::string& option) {
    const auto equals = option.find('=');
    const auto colon = option.find(':', equals == std::string::npos ? 0 : equals);
    if (equals == std::string::npos || colon == std::string::npos || equals == 0) {
        throw Failure(ExitCode::usage, "cannot use --attribute " + option, "it is not of the form OID=TYPE:VALUE",
                      "for example 1.2.3.4=UTF8String:text");
    }
    text::checkOid("--attribute", option.substr(0, equals));
    return {option.substr(equals + 1, colon - equals - 1), option.substr(0, equals), option.substr(colon + 1)};
}

/// DER of the certificates between the signer's and the root, as the stores have them. The root stays out: whoever
/// verifies must have it from elsewhere.
std::vector<std::string> issuersOf(const orvik::plugin::crypto::ICertificate& certificate, const std::string& format) {
    if (format == orvik::plugin::crypto::constant::signature_xmldsig) {
        throw Failure(ExitCode::usage, "cannot sign", "--include-chain is not for signed XML documents");
    }
    const Trust chain = judgeChain(certificate, {});
    if ((chain.status & capi::CERT_TRUST_IS_PARTIAL_CHAIN) != 0) {
        const auto& last = chain.elements.empty() ? certificate : *chain.elements.back().certificate;
        throw Failure(ExitCode::service, "cannot include the chain",
                      "the issuer's certificate is missing (" + printableName(text::name(last.issuerNameInfo())) + ")",
                      "add it with 'klunortredi certs add FILE --store ca'");
    }
    std::vector<std::string> issuers;
    for (std::size_t i = 1; i < chain.elements.size(); ++i) {
        const auto& issuer = *chain.elements[i].certificate;
        if (issuer.subject() != issuer.issuer()) {
            issuers.push_back(issuer.raw());
        }
    }
    return issuers;
}

/// One batch: a signer, a format, and where the signatures go.
class Batch {
public:
    Batch(Session& session, const SignArguments& arguments)
        : session_(session), arguments_(arguments), factory_(arguments.format),
          certificate_(findCertificate(storeCertificates("my"), arguments.certificate, "store my")) {
        if (!arguments.attributes.empty() && arguments.format == orvik::plugin::crypto::constant::signature_xmldsig) {
            throw Failure(ExitCode::usage, "cannot use --attribute", "XML signatures have no signed attributes");
        }
        for (const std::string& attribute : arguments.attributes) {
            request_.attributes.push_back(parseAttribute(attribute));
        }
        if (arguments.includeChain) {
            issuers_ = issuersOf(*certificate_, arguments.format);
        }
        session_.pin.setTriesLeft([this]() -> std::optional<unsigned> {
            const auto provider = certificate_->provider(true);
            const auto container = certificate_->container();
            return provider && container ? pinTriesLeft(*provider, *container) : std::nullopt;
        });
    }

    Json sign(const std::string& file) {
        Input input(file);
        if (input.raw().peek() == std::istream::traits_type::eof()) {
            input.check();
            throw Failure(ExitCode::input, "cannot sign " + input.name(), "it is empty",
                          "a signature needs something to sign");
        }
        OutputFile out(outputOf(file), session_.options.force);
        const auto signature = signatureOf(input, "cannot sign " + input.name());
        const std::string_view octets(reinterpret_cast<const char*>(signature.data()), signature.size());
        const bool armoured =
            session_.options.pem && arguments_.format != orvik::plugin::crypto::constant::signature_xmldsig;
        if (armoured) {
            out.write(toPem(octets, "CMS"));
        } else {
            out.write(octets);
        }
        out.commit();
        return {{"input", file}, {"output", out.path()}, {"format", arguments_.format}, {"bytes", signature.size()}};
    }

    /// Refuses, before anything is written, a batch in which one signature would replace another, or a file yet to be
    /// signed.
    void checkOutputs() const {
        std::set<boost::filesystem::path> taken;
        if (session_.options.force) {
            for (const std::string& file : arguments_.files) {
                taken.insert(boost::filesystem::weakly_canonical(file));
            }
        }
        for (const std::string& file : arguments_.files) {
            const std::string out = outputOf(file);
            if (out != "-" && !taken.insert(boost::filesystem::weakly_canonical(out)).second) {
                throw Failure(ExitCode::usage, "cannot sign " + file,
                              "its signature would replace " + out + ", another file of this batch",
                              "sign it by itself, or use --out or --out-dir");
            }
        }
    }

    [[nodiscard]] const orvik::plugin::crypto::ICertificate& certificate() const { return *certificate_; }

private:
    /// FILE without its extension, followed by the format's suffix, beside FILE or in --out-dir.
    [[nodiscard]] std::string outputOf(const std::string& file) const {
        if (!arguments_.out.empty()) {
            return arguments_.out;
        }
        if (file == "-") {
            return "-";
        }
        const boost::filesystem::path path(file);
        const boost::filesystem::path folder =
            arguments_.outDir.empty() ? path.parent_path() : boost::filesystem::path(arguments_.outDir);
        return (folder / path.stem()).string() + factory_.extension(FileInfo(file));
    }

    std::vector<unsigned char> signatureOf(Input& input, const std::string& what) {
        std::vector<unsigned char> out;
        try {
            const auto creator = factory_.creator(request_);
            if (arguments_.includeChain) {
                orvik::plugin::wincrypt::binary::ChainParams params;
                params.issuers = issuers_;
                initialize(*creator, params);
            } else {
                SignatureFactory::Creator::Params params;
                initialize(*creator, params);
            }
            feed(input, *creator);
            if (!creator->finalize(out)) {
                throw session_.pin.refusal(what);
            }
        } catch (...) {
            throw currentFailure(what);
        }
        return out;
    }

    void initialize(orvik::plugin::IDataHandler& creator, SignatureFactory::Creator::Params& params) const {
        params.certificate = certificate_;
        params.attributes = request_.attributes;
        creator.initialize(params);
    }

    /// The bar is gone when this returns: what comes behind it may ask for the PIN.
    void feed(Input& input, orvik::plugin::IDataHandler& handler) const {
        Progress progress(session_.console.showsProgress(), "signing " + input.name(), input.size());
        input.watch([&progress](std::uint64_t octets) { progress.advance(octets); });
        std::vector<char> chunk(chunkSize);
        std::istream& stream = input.raw();
        while (stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), stream.gcount() > 0) {
            handler.update(reinterpret_cast<const unsigned char*>(chunk.data()),
                           static_cast<std::size_t>(stream.gcount()));
        }
        input.watch({});
        input.check();
    }

    Session& session_;
    const SignArguments& arguments_;
    orvik::plugin::wincrypt::SignatureFactory factory_;
    CertificatePtr certificate_;
    SignatureRequest request_;
    std::vector<std::string> issuers_; ///< DER
};

} // namespace

ExitCode sign(Session& session, const SignArguments& arguments) {
    if (arguments.files.size() > 1 && !arguments.out.empty()) {
        throw Failure(ExitCode::usage, "cannot sign", "--out names one file, but several are to be signed",
                      "use --out-dir");
    }
    Batch batch(session, arguments);
    batch.checkOutputs();
    Json list = Json::array();
    ExitCode worst = ExitCode::done;
    for (const std::string& file : arguments.files) {
        try {
            list.push_back(batch.sign(file));
        } catch (...) {
            const Failure failure = currentFailure("cannot sign " + file);
            // After a refused PIN every further file would cost another try.
            if (!arguments.keepGoing || failure.exit() == ExitCode::pin || failure.exit() == ExitCode::cancelled) {
                throw failure;
            }
            session.console.note(std::string("klunortredi: ") + failure.what());
            list.push_back({{"input", file}, {"error", {{"code", failure.code()}, {"message", failure.what()}}}});
            worst = failure.exit();
        }
    }
    if (arguments.files.size() == 1 && worst == ExitCode::done && list.front()["output"] == "-") {
        return worst; // standard output is the signature's
    }
    session.console.result({{"files", list}}, [&](std::ostream& out) {
        for (const Json& file : list) {
            if (file.contains("output")) {
                out << printable(file["input"].get<std::string>()) << " -> "
                    << printable(file["output"].get<std::string>()) << " (" << arguments.format << ", " << file["bytes"]
                    << " bytes), signed by " << titleOf(batch.certificate()) << '\n';
            }
        }
    });
    return worst;
}

} // namespace klunortredi::cli
