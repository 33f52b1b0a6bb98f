#pragma once

/// A locale that shows who asks it.

#include <algorithm>
#include <locale>

namespace wincrypt_certificates {

/// Lower-cases Q to t, which no other locale does.
class OddLetters : public std::ctype<char> {
protected:
    char do_tolower(char letter) const override { return letter == 'Q' ? 't' : std::ctype<char>::do_tolower(letter); }
    const char* do_tolower(char* from, const char* to) const override {
        std::transform(from, from + (to - from), from, [this](char letter) { return do_tolower(letter); });
        return to;
    }
};

} // namespace wincrypt_certificates
