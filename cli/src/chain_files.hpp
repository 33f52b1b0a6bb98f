#pragma once

/// Files that bring certificates and revocation lists for a chain.

#include "failure.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

/// DER of what files hold.
struct ChainFiles {
    std::vector<std::string> certificates;
    std::vector<std::string> crls;
};

/// Exit 3: the file is a PKCS#12 file, which takes a password to read.
class KeyFileFailure : public Failure {
public:
    explicit KeyFileFailure(const std::string& name);
};

/// Adds what a file holds: one certificate, CRL or PKCS#7 bundle (.p7b, RFC 5652 SignedData) as DER or bare Base64, or
/// any number of them as PEM blocks, among which blocks of other kinds are passed over. Throws Failure (exit 3) when
/// the file has none of them (KeyFileFailure for a PKCS#12 file), when a block is not what its label says, and for
/// files larger than real ones.
void readChainFile(const std::string& path, ChainFiles& files);

} // namespace klunortredi::cli
