#include "content_ciphers.hpp"

#include "failure.hpp"
#include "text.hpp"

#include <algorithm>
#include <iterator>
#include <vector>

namespace klunortredi::cli {

namespace {

constexpr ContentCipher ciphers[] = {
    {"kuznyechik-ctr-acpkm-omac", "1.2.643.7.1.1.5.2.2", true, true},
    {"kuznyechik-ctr-acpkm", "1.2.643.7.1.1.5.2.1", false, true},
    {"magma-ctr-acpkm-omac", "1.2.643.7.1.1.5.1.2", true, true},
    {"magma-ctr-acpkm", "1.2.643.7.1.1.5.1.1", false, true},
    {"gost28147-89", "1.2.643.2.2.21", false, true},
    {"aes-256-gcm", "2.16.840.1.101.3.4.1.46", true, false},
    {"aes-192-gcm", "2.16.840.1.101.3.4.1.26", true, false},
    {"aes-128-gcm", "2.16.840.1.101.3.4.1.6", true, false},
    {"aes-256-cbc", "2.16.840.1.101.3.4.1.42", false, false},
    {"aes-192-cbc", "2.16.840.1.101.3.4.1.22", false, false},
    {"aes-128-cbc", "2.16.840.1.101.3.4.1.2", false, false},
    {"3des-cbc", "1.2.840.113549.3.7", false, false},
};

} // namespace

const ContentCipher& contentCipher(const std::string& name) {
    const auto* const row = std::find_if(std::begin(ciphers), std::end(ciphers), [&](const ContentCipher& cipher) {
        return cipher.name == text::lower(name) || cipher.oid == name;
    });
    if (row == std::end(ciphers)) {
        std::vector<std::string> names;
        std::transform(std::begin(ciphers), std::end(ciphers), std::back_inserter(names),
                       [](const ContentCipher& cipher) { return std::string(cipher.name); });
        throw Failure(ExitCode::usage, "cannot use --cipher " + name, "there is no such cipher",
                      "choose one of " + text::joined(names));
    }
    return *row;
}

const ContentCipher* contentCipherByOid(std::string_view oid) {
    const auto* const row = std::find_if(std::begin(ciphers), std::end(ciphers),
                                         [&](const ContentCipher& cipher) { return cipher.oid == oid; });
    return row == std::end(ciphers) ? nullptr : row;
}

} // namespace klunortredi::cli
