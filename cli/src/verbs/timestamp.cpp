#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "console.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "printable.hpp"
#include "signature_shape.hpp"
#include "signers.hpp"
#include "text.hpp"
#include "timestamping.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
namespace constant = orvik::plugin::crypto::constant;
namespace wincrypt = orvik::plugin::wincrypt;

constexpr std::size_t headSize = 4096; // octets of a signature that show its shape

constexpr std::size_t chunkSize = 1024 * 1024;

std::string formatOf(SignatureShape shape) {
    switch (shape) {
    case SignatureShape::xml:
        return constant::signature_xmldsig;
    case SignatureShape::detached:
        return constant::signature_detached;
    default: // what cannot be read is refused when it is read
        return constant::signature_attached;
    }
}

std::string readWhole(std::istream& stream, const Input& input) {
    std::string octets;
    std::string chunk(chunkSize, '\0');
    while (stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), stream.gcount() > 0) {
        octets.append(chunk, 0, static_cast<std::size_t>(stream.gcount()));
        if (octets.size() > largestToStamp) {
            throw Failure(ExitCode::input, "cannot time-stamp " + input.name(),
                          "it is larger than " + std::to_string(largestToStamp >> 20U) + " MiB",
                          "time-stamp it when it is signed, detached");
        }
    }
    input.check();
    return octets;
}

std::string outputOf(const Session& session, const TimestampArguments& arguments) {
    if (!arguments.out.empty()) {
        return arguments.out;
    }
    if (arguments.file != "-" && !session.options.force) {
        throw Failure(ExitCode::usage, "cannot time-stamp " + arguments.file, "no output is named",
                      "name it with --out, or replace the signature itself with --force");
    }
    return arguments.file;
}

/// The latest time-stamp of the first signer, as `verify` judges it; null for XML.
Json newTimestamp(std::string_view message) {
    wincrypt::HCRYPTMSG handle;
    *handle.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    if (!handle || wincrypt::CryptMsgUpdate(handle.get(), reinterpret_cast<const BYTE*>(message.data()),
                                            static_cast<DWORD>(message.size()), 1) == 0) {
        throw orvik::plugin::crypto::exception::SystemException();
    }
    const std::vector<Signer> signers = readSigners(handle.get());
    if (signers.empty() || signers.front().timestamps.empty()) {
        return nullptr;
    }
    const auto& all = signers.front().timestamps;
    return toJson(&*std::max_element(all.begin(), all.end(), [](const Timestamp& a, const Timestamp& b) {
        return b.time.is_special() ? false : a.time.is_special() || a.time < b.time;
    }));
}

} // namespace

ExitCode timestamp(Session& session, const TimestampArguments& arguments) {
    checkAuthorities("--url", arguments.urls);
    const std::string path = outputOf(session, arguments);
    if (path == "-" && session.options.json) {
        throw Failure(ExitCode::usage, "cannot time-stamp", "standard output belongs to the signature",
                      "name a file with --out");
    }
    const std::string what = "cannot time-stamp " + arguments.file;
    Input input(arguments.file);
    const bool xml = signatureShape(input.peek(headSize)) == SignatureShape::xml;
    std::istream& stream = xml ? input.raw() : input.decoded();
    const std::string format = formatOf(signatureShape(input.peek(headSize)));
    const std::string signature = readWhole(stream, input);
    OutputFile out(path, session.options.force);
    Json made;
    try {
        const std::vector<unsigned char> stamped = withTimestamp(format, signature, arguments.urls);
        const std::string_view octets(reinterpret_cast<const char*>(stamped.data()), stamped.size());
        made = xml ? Json(nullptr) : newTimestamp(octets);
        const bool replacesPem = path == arguments.file && !input.label().empty();
        if ((session.options.pem || replacesPem) && !xml) {
            out.write(toPem(octets, "CMS"));
        } else {
            out.write(octets);
        }
    } catch (...) {
        throw currentFailure(what);
    }
    out.commit();
    if (path == "-") {
        return ExitCode::done;
    }
    const Json document{
        {"input", arguments.file}, {"output", path}, {"format", format}, {"bytes", out.size()}, {"timestamp", made}};
    session.console.result(document, [&](std::ostream& text) {
        text << printable(arguments.file) << " -> " << printable(path);
        if (made.is_object()) {
            text << ", time-stamp " << made["time"].get<std::string>() << " by "
                 << printable(made["authority"].get<std::string>());
        }
        text << '\n';
    });
    return ExitCode::done;
}

} // namespace klunortredi::cli
