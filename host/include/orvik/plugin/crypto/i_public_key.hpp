#pragma once

#include "orvik/plugin/export.hpp"

#include <string>

namespace orvik::plugin::crypto {

/// The three parts of a SubjectPublicKeyInfo (RFC 5280, 4.1.2.7).
class ORVIK_EXPORT IPublicKey {
public:
    IPublicKey() = default;
    IPublicKey(const IPublicKey&) = delete;
    IPublicKey& operator=(const IPublicKey&) = delete;
    virtual ~IPublicKey();

    /// Dotted OID of the key algorithm.
    [[nodiscard]] virtual const std::string& algObjId() const = 0;
    /// DER of the algorithm parameters, empty when absent.
    [[nodiscard]] virtual const std::string& algParams() const = 0;
    /// Octets of the public-key bit string.
    [[nodiscard]] virtual const std::string& key() const = 0;
    virtual bool operator==(const IPublicKey& other) const = 0;
};

} // namespace orvik::plugin::crypto
