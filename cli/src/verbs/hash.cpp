#include "verbs/verbs.hpp"

#include "console.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/hex.hpp"
#include "output_file.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace klunortredi::cli {

namespace {

struct HashName {
    const char* name;
    const char* oid;
};

constexpr HashName hashNames[] = {
    {"streebog256", "1.2.643.7.1.1.2.2"}, {"streebog512", "1.2.643.7.1.1.2.3"}, {"mdgost12256", "1.2.643.7.1.1.2.2"},
    {"mdgost12512", "1.2.643.7.1.1.2.3"}, {"mdgost94", "1.2.643.2.2.9"},        {"sha1", "1.3.14.3.2.26"},
    {"sha256", "2.16.840.1.101.3.4.2.1"}, {"sha384", "2.16.840.1.101.3.4.2.2"}, {"sha512", "2.16.840.1.101.3.4.2.3"},
};

/// One name has many spellings: SHA-256, sha256, md_gost12_256 (openssl's).
std::string plainName(const std::string& algorithm) {
    std::string name = text::lower(algorithm);
    std::erase_if(name, [](char c) { return c == '-' || c == '_'; });
    return name;
}

std::string oidOf(const std::string& algorithm) {
    const auto* known = std::find_if(std::begin(hashNames), std::end(hashNames),
                                     [name = plainName(algorithm)](const HashName& row) { return name == row.name; });
    return known == std::end(hashNames) ? algorithm : known->oid;
}

bool isOid(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
}

std::string digestOf(Session& session, Input& input, const std::string& oid) {
    Progress progress(session.console.showsProgress(), "hashing " + input.name(), input.size());
    input.watch([&progress](std::uint64_t octets) { progress.advance(octets); });
    const auto hash = chooseProvider("")->hash(nullptr, oid);
    const std::string digest = orvik::plugin::hex::encode(hash->create(input.raw()));
    input.watch({});
    input.check();
    return digest;
}

} // namespace

ExitCode hash(Session& session, const HashArguments& arguments) {
    const std::string oid = oidOf(arguments.algorithm);
    if (!isOid(oid)) {
        throw Failure(ExitCode::usage, "cannot hash", "there is no algorithm '" + arguments.algorithm + "'",
                      "use an OID, or streebog256, streebog512, md_gost94, sha1, sha256, sha384, sha512");
    }
    Input input(arguments.file);
    const std::string digest = digestOf(session, input, oid);
    session.console.result({{"file", input.name()}, {"algorithm", oid}, {"digest", digest}},
                           [&](std::ostream& out) { out << digest << "  " << printable(input.name()) << '\n'; });
    return ExitCode::done;
}

ExitCode random(Session& session, const RandomArguments& arguments) {
    constexpr unsigned long most = 16UL * 1024 * 1024; // one call hands over everything
    if (arguments.count > most) {
        throw Failure(ExitCode::usage, "cannot make random octets", "at most " + std::to_string(most) + " at once");
    }
    const auto octets = chooseProvider("")->randomBytes(arguments.count);
    if (octets.size() != arguments.count) {
        throw Failure(ExitCode::service, "cannot make random octets", "the service refused");
    }
    const std::string bytes(octets.begin(), octets.end());
    const std::string hex = orvik::plugin::hex::encode(bytes);
    session.console.result({{"random", hex}}, [&](std::ostream& out) {
        if (arguments.base64) {
            out << orvik::plugin::base64::encode(bytes) << '\n';
        } else if (arguments.hex) {
            out << hex << '\n';
        } else {
            out << bytes;
        }
    });
    return ExitCode::done;
}

} // namespace klunortredi::cli
