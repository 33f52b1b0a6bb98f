#pragma once

/// One or more valid encodings of every structure type, for the tests that go over all of them.

#include "core/bytes.hpp"

#include <vector>

namespace klunortredi::csp::test {

struct Sample {
    const char* structType;
    Bytes der;
};

const std::vector<Sample>& samples();

/// A self-signed certificate made by OpenSSL, with extensions.
const Bytes& sampleCertificate();

} // namespace klunortredi::csp::test
