#pragma once

/// What a container's directory says about itself in clear: the file `container.json`.

#include "core/bytes.hpp"
#include "keys/container_name.hpp"

#include <string>
#include <vector>

namespace klunortredi::csp {

/// A key pair of a container.
struct KeyEntry {
    DWORD spec;          ///< AT_KEYEXCHANGE or AT_SIGNATURE
    unsigned generation; ///< which writing of the key file is the valid one
    Bytes fileHash;      ///< SHA-256 of the key file: damage is told apart from a wrong PIN
    Bytes publicKeyInfo; ///< DER SubjectPublicKeyInfo: export needs no PIN
    bool exportable;
};

struct ContainerMeta {
    ContainerId id;
    bool wantsPin = false; ///< false: the PIN is empty, and the container opens by itself
    std::vector<KeyEntry> keys;
};

Bytes encodeMeta(const ContainerMeta& meta);
/// Throws ApiError(NTE_KEYSET_ENTRY_BAD) when the text is not one that `encodeMeta` writes.
ContainerMeta decodeMeta(ByteView text);

/// What a key file is bound to: SHA-256 of the attributes of its key pair and of the container as they stand in the
/// description. Not of the generation and the file's hash, which change with each writing.
Bytes attributeHash(const ContainerMeta& meta, const KeyEntry& key);

/// File names in the container's directory.
std::string keyFileName(const KeyEntry& key);
std::string certificateFileName(DWORD spec);
inline constexpr const char* metaFileName = "container.json";
inline constexpr const char* triesFileName = "tries";
inline constexpr const char* keyFileSuffix = ".p8";

} // namespace klunortredi::csp
