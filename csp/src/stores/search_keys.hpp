#pragma once

/// Numbers by which certificates are looked up. Certificates that a search asks for have its number; others may have it
/// too, so that each one found must still be compared.

#include "x509/certificate.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace klunortredi::csp {

enum class SearchBy : std::uint8_t { Subject, IssuerAndSerial, PublicKey, KeyIdentifier };
inline constexpr std::size_t searchKinds = 4;

/// The numbers of one certificate, by SearchBy. They follow from its octets alone.
using SearchKeys = std::array<std::uint64_t, searchKinds>;

SearchKeys searchKeysOf(const Certificate& certificate);

/// Number of a subject: the same for names that compare equal (RFC 5280, 7.1). DER Name.
std::uint64_t subjectNumber(ByteView name);
/// Number of a subject by the hash that `CertInfo::subjectHash` has.
std::uint64_t subjectNumber(unsigned long hash) noexcept;
std::uint64_t issuerAndSerialNumber(const CERT_INFO& info);
/// By the octets of the key alone: algorithm and parameters may be written in several ways.
std::uint64_t publicKeyNumber(const CERT_PUBLIC_KEY_INFO& key);
std::uint64_t keyIdentifierNumber(ByteView identifier);

/// Where a search has to look: everywhere, at one thumbprint, or at one number.
struct SearchPlace {
    std::string thumbprint{}; ///< lower-case hexadecimal; empty: not by thumbprint
    struct Number {
        SearchBy by;
        std::uint64_t value;
    };
    std::optional<Number> number{};
};

} // namespace klunortredi::csp
