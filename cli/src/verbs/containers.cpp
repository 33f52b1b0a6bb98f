#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "capi/skipped_entries.hpp"
#include "certificates.hpp"
#include "confirmation.hpp"
#include "console.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "installed.hpp"
#include "printable.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::wincrypt::HCRYPTKEY;
using orvik::plugin::wincrypt::HCRYPTPROV;

std::vector<ProviderPtr> chosen(const std::string& provider) {
    return provider.empty() ? installedProviders() : std::vector<ProviderPtr>{chooseProvider(provider)};
}

/// The key pairs in a container and the certificate that lies beside one of them.
struct Contents {
    std::vector<std::string> keys;
    std::string certificate; ///< thumbprint, empty when none
    std::string trouble;     ///< why they cannot be listed, empty when they can
    bool unread = false;     ///< reading failed: another time there may be more
};

bool isReadFailure(std::uint32_t code) {
    return code == capi::ERROR_READ_FAULT || code == capi::ERROR_ACCESS_DENIED ||
           code == capi::ERROR_TOO_MANY_OPEN_FILES;
}

/// Adds the certificate beside a key. One bad certificate does not hide the key, nor other containers.
void addCertificate(Contents& contents, const HCRYPTKEY& key) {
    const std::string der = orvik::plugin::wincrypt::CryptGetKeyParamEx(key.get(), capi::KP_CERTIFICATE);
    if (der.empty()) {
        const std::uint32_t error = orvik::plugin::wincrypt::GetLastErrorEx();
        if (isReadFailure(error)) { // services differ in how they say that there is none
            contents.trouble = "the certificate beside the key cannot be read: " + refusalReason(error);
            contents.unread = true;
        }
        return;
    }
    try {
        if (contents.certificate.empty()) {
            contents.certificate = thumbprintOf(*certificateFromDer(der));
        }
    } catch (const std::exception&) {
        contents.trouble = "the certificate beside the key cannot be read";
    }
}

Contents contentsOf(const Container& container) {
    Contents contents;
    unsigned error = 0;
    const HCRYPTPROV context(text::wide(container.path), container.provider->name(), container.provider->type(),
                             capi::CRYPT_SILENT, &error);
    if (context.get() == 0) {
        contents.trouble = refusalReason(error);
        contents.unread = isReadFailure(error);
        return contents;
    }
    constexpr std::pair<DWORD, const char*> specs[] = {{capi::AT_KEYEXCHANGE, "exchange"},
                                                       {capi::AT_SIGNATURE, "signature"}};
    std::string refused; // why a key is not listed
    for (const auto& [spec, name] : specs) {
        HCRYPTKEY key;
        if (orvik::plugin::wincrypt::CryptGetUserKey(context.get(), spec, key.put()) == 0) {
            const auto refusal = orvik::plugin::wincrypt::GetLastErrorEx();
            if (refusal != capi::NTE_NO_KEY) {
                refused = refusalReason(refusal);
            }
            contents.unread = contents.unread || isReadFailure(refusal);
            continue;
        }
        contents.keys.emplace_back(name);
        addCertificate(contents, key);
    }
    if (contents.keys.empty()) { // services differ in how they say that the other key is not there
        contents.trouble = refused;
    }
    return contents;
}

std::string describe(const Contents& contents) {
    if (!contents.trouble.empty()) {
        return contents.keys.empty() ? "unusable: " + contents.trouble
                                     : text::joined(contents.keys) + " key, " + contents.trouble;
    }
    return (contents.keys.empty() ? "no key" : text::joined(contents.keys) + " key") + ", " +
           (contents.certificate.empty() ? "no certificate" : "certificate " + contents.certificate.substr(0, 8));
}

} // namespace

ExitCode listContainers(Session& session, const ContainersArguments& arguments) {
    const auto containers = containersOf(chosen(arguments.provider));
    Json list = Json::array();
    std::vector<Contents> contents;
    for (const Container& container : containers) {
        contents.push_back(contentsOf(container));
        list.push_back({{"name", container.name},
                        {"path", container.path},
                        {"provider", text::utf8(container.provider->name())},
                        {"type", static_cast<unsigned>(container.provider->type())},
                        {"keys", contents.back().keys},
                        {"certificate", contents.back().certificate}});
        if (!contents.back().trouble.empty()) {
            list.back()["error"] = contents.back().trouble;
        }
    }
    session.console.result({{"containers", list}}, [&](std::ostream& out) {
        for (std::size_t i = 0; i < containers.size(); ++i) {
            out << printable(containers[i].name) << "  (" << describe(contents[i]) << ")  "
                << text::utf8(containers[i].provider->name()) << '\n';
        }
        if (containers.empty()) {
            out << "no containers\n";
        }
    });
    return std::ranges::any_of(contents, &Contents::unread) ? ExitCode::input : ExitCode::done;
}

ExitCode deleteContainer(Session& session, const ContainersArguments& arguments) {
    const Container container = findContainer(chosen(arguments.provider), arguments.name);
    const std::string shown = "container " + printable(container.name);
    if (!arguments.yes) {
        confirm(shown + " (" + describe(contentsOf(container)) + "): delete it with its private key, for good?",
                "cannot delete " + shown);
    }
    container.provider->deleteContainer(text::wide(container.path), "asked for on the command line");
    session.console.result({{"deleted", container.name}, {"provider", text::utf8(container.provider->name())}},
                           [&](std::ostream& out) { out << "deleted " << shown << '\n'; });
    return ExitCode::done;
}

} // namespace klunortredi::cli
