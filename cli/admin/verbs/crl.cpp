#include "x509/crl.hpp"
#include "chains/crl_signer.hpp"
#include "core/error.hpp"
#include "core/hex.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "printable.hpp"
#include "skipped.hpp"
#include "stores/crl_files.hpp"
#include "stores/system_store.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;
using csp::CrlSummary;
using Json = nlohmann::ordered_json;

std::filesystem::path folderOf(const std::string& store) {
    try {
        return csp::SystemStore::open(store)->directory();
    } catch (const csp::ApiError& e) {
        if (e.code() != capi::ERROR_INVALID_PARAMETER) {
            throw;
        }
        throw Failure(ExitCode::usage, "cannot use --store " + store, "this is not the name of a store",
                      "its names are of letters, digits, '-', '_' and dots");
    }
}

std::string timeText(std::time_t time) {
    std::tm parts{};
    std::array<char, 32> text{};
    const bool readable = ::gmtime_r(&time, &parts) != nullptr &&
                          std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) != 0;
    return readable ? text.data() : "";
}

Json toJson(const CrlSummary& crl) {
    return {{"issuer", crl.issuer},
            {"number", csp::toHex(crl.number)},
            {"this_update", timeText(crl.thisUpdate)},
            {"next_update", crl.nextUpdate ? Json(timeText(*crl.nextUpdate)) : Json(nullptr)},
            {"entries", crl.entries},
            {"delta", crl.delta},
            {"indirect", crl.indirect},
            {"file", crl.file}};
}

void print(std::ostream& out, const CrlSummary& crl) {
    const bool late = crl.nextUpdate && *crl.nextUpdate < std::time(nullptr);
    out << cli::printableName(crl.issuer) << '\n'
        << "  number       " << (crl.number.empty() ? "not stated" : csp::toHex(crl.number)) << '\n'
        << "  this update  " << timeText(crl.thisUpdate) << '\n'
        << "  next update  " << (crl.nextUpdate ? timeText(*crl.nextUpdate) : "not stated")
        << (late ? " (over: bring a new list)" : "") << '\n'
        << "  entries      " << crl.entries << (crl.delta ? ", delta" : "") << (crl.indirect ? ", indirect" : "")
        << '\n'
        << "  file         " << cli::printable(crl.file) << '\n';
}

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The key whose signature the CRL has; empty when no certificate of the stores has that key.
csp::Bytes signerOf(csp::ByteView contents) {
    const auto der = csp::crlDer(contents);
    return der ? csp::crlSignerKey(*der).value_or(csp::Bytes{}) : csp::Bytes{};
}

/// The one list that `which` means.
CrlSummary find(const std::filesystem::path& folder, const CrlArguments& arguments) {
    csp::CrlList list = csp::listCrls(folder);
    std::vector<CrlSummary>& found = list.crls;
    std::erase_if(found, [which = lower(arguments.which)](const CrlSummary& crl) {
        return !crl.file.starts_with(which) && lower(crl.issuer).find(which) == std::string::npos;
    });
    if (found.empty()) {
        refuseUnread(list.unusable, "cannot tell whether there is a CRL '" + arguments.which + "'");
    }
    if (arguments.which.empty() || found.empty()) {
        throw Failure(ExitCode::no, "no CRL '" + arguments.which + "'", "none in store " + arguments.store + " matches",
                      "see 'klunortredi-csp crl list'");
    }
    if (found.size() > 1) {
        throw Failure(ExitCode::usage, "cannot tell which CRL '" + arguments.which + "' is",
                      std::to_string(found.size()) + " match", "name its file, as 'klunortredi-csp crl list' shows it");
    }
    return found.front();
}

} // namespace

ExitCode addCrl(Session& session, const CrlArguments& arguments) {
    const std::filesystem::path folder = folderOf(arguments.store);
    const std::string octets = cli::readSmall(arguments.which, csp::largestCrl, "CRL");
    const csp::ByteView contents(reinterpret_cast<const std::uint8_t*>(octets.data()), octets.size());
    try {
        const csp::Bytes signer = signerOf(contents);
        const CrlSummary crl = csp::addCrl(folder, contents, signer);
        const bool verified = !signer.empty();
        const Json added{{"added", toJson(crl)}, {"verified", verified}, {"store", arguments.store}};
        session.console.result(added, [&](std::ostream& out) {
            out << "added the CRL of " << cli::printableName(crl.issuer) << " of " << timeText(crl.thisUpdate)
                << " to store " << arguments.store << '\n';
            if (!verified) {
                out << "  its signature is not verified: no certificate of its issuer in the stores signed it\n"
                       "  it does not replace any other CRL, and chains use it only with its issuer's signature\n";
            }
        });
    } catch (const csp::ApiError& e) {
        if (e.code() == capi::ERROR_INVALID_DATA || e.code() == capi::CRYPT_E_ASN1_CORRUPT) {
            throw Failure(ExitCode::input, "cannot read " + arguments.which, "this is not a CRL", {}, e.code());
        }
        if (e.code() != capi::CRYPT_E_EXISTS) {
            throw;
        }
        const CrlSummary crl = csp::summarizeCrl(contents);
        session.console.result({{"added", nullptr}, {"store", arguments.store}}, [&](std::ostream& out) {
            out << "store " << arguments.store << " has this CRL of " << cli::printableName(crl.issuer)
                << ", or a newer one, already\n";
        });
    }
    return ExitCode::done;
}

ExitCode listCrls(Session& session, const CrlArguments& arguments) {
    const auto [crls, unusable] = csp::listCrls(folderOf(arguments.store));
    Json rows = Json::array();
    std::ranges::transform(crls, std::back_inserter(rows), [](const CrlSummary& crl) { return toJson(crl); });
    Json names = Json::array();
    std::ranges::transform(unusable, std::back_inserter(names), [](const csp::UnusableEntry& entry) {
        return std::filesystem::path(entry.file).filename().string();
    });
    session.console.result(
        {{"store", arguments.store}, {"crls", rows}, {"unreadable", names}, {"skipped", toJson(unusable)}},
        [&, &crls = crls, &unusable = unusable](std::ostream& out) {
            for (const CrlSummary& crl : crls) {
                print(out, crl);
            }
            print(out, unusable);
            if (crls.empty() && unusable.empty()) {
                out << "no CRLs in store " << arguments.store << '\n';
            }
        });
    return exitOf(unusable);
}

ExitCode deleteCrl(Session& session, const CrlArguments& arguments) {
    const std::filesystem::path folder = folderOf(arguments.store);
    const CrlSummary crl = find(folder, arguments);
    csp::deleteCrl(folder, crl.file);
    session.console.result({{"deleted", toJson(crl)}, {"store", arguments.store}}, [&](std::ostream& out) {
        out << "deleted the CRL of " << cli::printableName(crl.issuer) << " from store " << arguments.store << '\n';
    });
    return ExitCode::done;
}

} // namespace klunortredi::admin
