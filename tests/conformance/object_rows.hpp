#pragma once

/// Structures of the CryptoAPI beside their DER (RFC 5280, RFC 2986, RFC 3161), written by hand.

#include "fixture.hpp"

#include <ostream>

namespace conformance {

struct ObjectRow {
    const char* name;
    const char* type; ///< number or OID, as CryptEncodeObject takes it
    const void* info; ///< the structure; lives as long as the process
    const char* der;  ///< hexadecimal
};

const std::vector<ObjectRow>& objectRows();

inline std::string nameOfObjectRow(const testing::TestParamInfo<ObjectRow>& tested) {
    return tested.param.name;
}
inline void PrintTo(const ObjectRow& row, std::ostream* out) {
    *out << row.name;
}

} // namespace conformance
