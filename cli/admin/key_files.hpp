#pragma once

/// The files that keys come in.

#include "identity.hpp"
#include "pin_source.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace klunortredi::admin {

/// What the command line says of the files to import.
struct KeyFiles {
    std::string file;        ///< PKCS#12, or the private key
    std::string certificate; ///< beside a private key; empty for PKCS#12
    std::string key;         ///< friendly name or number of the key, where the file holds several
};

/// Takes "KEY+CERT" apart: `files.file` when there is no file of that name and both halves are there.
KeyFiles splitPair(KeyFiles files);

/// Reads PKCS#12, or PKCS#8 and traditional RSA keys (DER, PEM, Base64, encrypted or not) with their certificate. The
/// password is asked for only when the file needs one. Throws cli::Failure: exit 3 (unreadable, not of the format),
/// exit 6 (wrong password), and as chooseIdentity does.
Identity readIdentity(const KeyFiles& files, cli::PinSource& password);

/// What a PKCS#12 file holds beside its keys.
struct KeyFileCertificates {
    std::vector<csp::Bytes> certificates; ///< DER, in the file's order
    std::size_t keys = 0;
};

/// Reads a PKCS#12 file for its certificates. Throws cli::Failure as readIdentity does.
KeyFileCertificates readCertificates(const std::string& path, cli::PinSource& password);

} // namespace klunortredi::admin
