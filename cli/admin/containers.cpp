#include "containers.hpp"

#include "core/hex.hpp"
#include "crypto/digest.hpp"
#include "failure.hpp"
#include "only_container.hpp"
#include "refusal.hpp"
#include "secrets.hpp"
#include "service_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;
using csp::ContainerId;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

bool named(const csp::ProviderRecord& record, const std::string& provider) {
    return provider.empty() || provider == std::to_string(record.type) ||
           lower(std::string(record.name)).find(lower(provider)) != std::string::npos;
}

} // namespace

std::vector<ContainerId> allContainers(const std::string& provider) {
    std::vector<ContainerId> all;
    bool known = false;
    for (const csp::ProviderRecord& record : csp::providers) {
        if (!named(record, provider)) {
            continue;
        }
        known = true;
        for (const std::string& name : csp::listContainers(record.type)) {
            all.push_back({name, record.type});
        }
    }
    if (!known) {
        throw Failure(ExitCode::service, "no provider '" + provider + "'", "none of the embedded service's matches",
                      "see 'klunortredi providers'");
    }
    return all;
}

ContainerId findContainer(const std::string& name, const std::string& provider) {
    std::vector<ContainerId> found = allContainers(provider);
    std::erase_if(found, [&](const ContainerId& id) { return id.name != name && csp::qualifiedName(id) != name; });
    return cli::onlyContainer(std::move(found), name, "klunortredi-csp container list");
}

const csp::ProviderRecord& providerOf(const ContainerId& id) {
    return csp::findProvider({}, id.providerType);
}

nlohmann::ordered_json describe(const ContainerId& id) {
    return {{"name", id.name},
            {"path", csp::qualifiedName(id)},
            {"provider", std::string(providerOf(id).name)},
            {"type", id.providerType}};
}

bool isDamage(const csp::ApiError& error) {
    return error.code() != capi::NTE_BAD_KEYSET && !csp::files::isAccessError(error.code()) &&
           !cli::isOfTheMachine(error.code());
}

std::vector<std::string> keyNames(const csp::Container& container) {
    std::vector<std::string> names;
    for (const csp::KeyEntry& key : container.keys()) {
        names.emplace_back(key.spec == capi::AT_SIGNATURE ? "signature" : "exchange");
    }
    return names;
}

std::string certificateThumbprint(csp::ByteView certificate) {
    return csp::toHex(csp::Digest::of(*csp::findDigest(capi::CALG_SHA1), certificate));
}

std::string certificateThumbprint(const csp::Container& container) {
    for (const csp::KeyEntry& key : container.keys()) {
        if (const auto der = container.certificate(key.spec)) {
            return certificateThumbprint(*der);
        }
    }
    return {};
}

csp::Secret askNewPin(cli::PinSource& pin, const ContainerId& id) {
    return takeSecret(cli::checkedPin(pin.askNew("New PIN for container " + id.name + ": ")));
}

csp::UnlockedKeys unlock(csp::Container& container, cli::PinSource& pin, const std::string& what) {
    try {
        if (!container.wantsPin()) {
            return container.unlock({});
        }
        if (container.triesRemaining() == 0) {
            csp::fail(capi::SCARD_W_CHV_BLOCKED); // before anybody is asked
        }
        const csp::Secret given = takeSecret(pin.ask("PIN for container " + container.id().name + ": "));
        return container.unlock(csp::view(given));
    } catch (const csp::ApiError& e) {
        throw pinRefusal(what, e, container);
    }
}

} // namespace klunortredi::admin
