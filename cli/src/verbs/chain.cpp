#include "verbs/verbs.hpp"

#include "certificates.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "printable.hpp"
#include "text.hpp"
#include "trust.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

namespace klunortredi::cli {

namespace {

void print(std::ostream& out, const Problem& problem, const char* indent) {
    out << indent << printable(problem.what) << '\n';
    if (!problem.next.empty()) {
        out << indent << "  " << printable(problem.next) << '\n';
    }
}

void print(std::ostream& out, const Trust& trust, bool names) {
    for (std::size_t i = 0; i < trust.elements.size(); ++i) {
        const TrustElement& element = trust.elements[i];
        out << "  " << i + 1 << " " << titleOf(*element.certificate) << '\n';
        for (const Problem& problem : element.problems) {
            print(out, problem, "      ");
        }
        for (const std::string& weak : element.weak) {
            out << "      weak: " << printable(weak) << '\n';
        }
        out << "      revocation  " << describe(element.revocation) << '\n';
        if (names && !element.statusNames.empty()) {
            out << "      status      " << text::joined(element.statusNames) << '\n';
        }
    }
    for (const Problem& problem : trust.problems) {
        print(out, problem, "  ");
    }
    out << "  revocation  " << describe(trust.revocation) << '\n';
    if (names && !trust.statusNames.empty()) {
        out << "  status      " << text::joined(trust.statusNames) << '\n';
    }
}

} // namespace

ExitCode chain(Session& session, const ChainArguments& arguments) {
    if (arguments.options.atSigningTime() || arguments.options.atTimestamp()) {
        throw Failure(ExitCode::usage, "cannot use --at " + arguments.options.at,
                      "a certificate has no signing time and no time-stamp",
                      "give a time, as --at 2026-11-20T12:00:00Z");
    }
    const bool isFile = arguments.which == "-" || ::access(arguments.which.c_str(), F_OK) == 0;
    const auto certificate = isFile ? readCertificate(arguments.which) : findInStore("my", arguments.which);
    const Trust trust = judgeChain(*certificate, chainQuery(arguments.options));
    session.console.result(toJson(trust), [&](std::ostream& out) {
        out << titleOf(*certificate) << ": " << (trust.trusted ? "trusted" : "not trusted") << '\n';
        print(out, trust, session.options.verbosity > 0);
    });
    return trust.trusted ? ExitCode::done : ExitCode::untrusted;
}

} // namespace klunortredi::cli
