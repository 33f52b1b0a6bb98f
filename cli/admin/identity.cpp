#include "identity.hpp"

#include "failure.hpp"

#include <algorithm>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;
using KeyBag = Bag<csp::ossl::Pkcs8>;
using CertificateBag = Bag<csp::ossl::X509Ptr>;

/// Whether both hold the same octets of a private key. Identifiers do not tell: some makers write one for all keys.
bool sameKey(const KeyBag& a, const KeyBag& b) {
    const auto octets = [](const KeyBag& bag) {
        const unsigned char* key = nullptr;
        int size = 0;
        PKCS8_pkey_get0(nullptr, &key, &size, nullptr, bag.object.get());
        return csp::ByteView(key, static_cast<std::size_t>(size));
    };
    return std::ranges::equal(octets(a), octets(b));
}

/// The same key under several certificates is still one key.
void dropRepeated(std::vector<KeyBag>& keys) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const auto rest = keys.begin() + static_cast<std::ptrdiff_t>(i) + 1;
        keys.erase(std::remove_if(rest, keys.end(), [&](const KeyBag& other) { return sameKey(keys[i], other); }),
                   keys.end());
    }
}

std::string namesOf(const std::vector<KeyBag>& keys) {
    std::string names;
    for (const KeyBag& bag : keys) {
        names += (names.empty() ? "'" : ", '") + bag.friendlyName + "'";
    }
    return names;
}

/// By friendly name, where that says which; else by number from 1.
std::size_t positionOf(const std::vector<KeyBag>& keys, const std::string& wanted) {
    const auto named = [&](const KeyBag& bag) { return bag.friendlyName == wanted; };
    if (std::count_if(keys.begin(), keys.end(), named) == 1) {
        return static_cast<std::size_t>(std::find_if(keys.begin(), keys.end(), named) - keys.begin());
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (std::to_string(i + 1) == wanted) {
            return i;
        }
    }
    throw Failure(ExitCode::no, "no key '" + wanted + "'", "the file holds " + namesOf(keys),
                  "choose by name or by number, from 1");
}

KeyBag chooseKey(std::vector<KeyBag> keys, const std::string& wanted) {
    if (keys.empty()) {
        throw Failure(ExitCode::input, "nothing to import", "the file holds no private key");
    }
    dropRepeated(keys);
    if (wanted.empty() && keys.size() > 1) {
        throw Failure(ExitCode::usage, "cannot tell which key to import", "the file holds " + namesOf(keys),
                      "choose one with --key, by name or by number from 1");
    }
    return std::move(keys[wanted.empty() ? 0 : positionOf(keys, wanted)]);
}

const CertificateBag* chooseCertificate(const std::vector<CertificateBag>& certificates, const PrivateKey& key,
                                        const csp::Bytes& localKeyId) {
    const CertificateBag* chosen = nullptr;
    bool linkedToAnother = false;
    for (const CertificateBag& bag : certificates) {
        const bool linked = !localKeyId.empty() && bag.localKeyId == localKeyId;
        if (belongsTo(bag.object.get(), key)) {
            chosen = chosen == nullptr || linked ? &bag : chosen;
        } else {
            linkedToAnother = linkedToAnother || linked;
        }
    }
    if (chosen == nullptr && linkedToAnother) {
        throw Failure(ExitCode::service, "cannot import the key", "the certificate beside it is of another key");
    }
    if (chosen == nullptr && !certificates.empty()) {
        throw Failure(ExitCode::service, "cannot import the key", "no certificate of the file belongs to it");
    }
    return chosen;
}

} // namespace

Identity chooseIdentity(PfxContents contents, const std::string& wanted) {
    const KeyBag bag = chooseKey(std::move(contents.keys), wanted);
    Identity identity{decodePrivateKey(bag.object.get()), {}, bag.friendlyName, contents.certificates.size()};
    if (const auto* const chosen = chooseCertificate(contents.certificates, identity.key, bag.localKeyId)) {
        identity.certificate = encodeCertificate(chosen->object.get());
        identity.otherCertificates -= 1;
        if (identity.friendlyName.empty()) {
            identity.friendlyName = chosen->friendlyName;
        }
    }
    return identity;
}

} // namespace klunortredi::admin
