#pragma once

#include "core/secret.hpp"

#include <string>

namespace klunortredi::admin {

/// A PIN or password in memory that is wiped; the text that it came in is wiped here.
inline csp::Secret takeSecret(std::string text) {
    csp::Secret secret = csp::secretOf(text);
    OPENSSL_cleanse(text.data(), text.size());
    return secret;
}

} // namespace klunortredi::admin
