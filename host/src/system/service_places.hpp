#pragma once

/// Where the vendors' installers put the libraries of their CryptoAPI services.

#include <array>

namespace orvik::plugin::internal {

// The first that exists wins: the unversioned link, then the library itself, by architecture.
inline constexpr std::array cryptoProPlaces = {
    "/opt/cprocsp/lib/amd64/libcapi20.so",   "/opt/cprocsp/lib/amd64/libcapi20.so.4",
    "/opt/cprocsp/lib/aarch64/libcapi20.so", "/opt/cprocsp/lib/aarch64/libcapi20.so.4",
    "/opt/cprocsp/lib/e2k64/libcapi20.so",   "/opt/cprocsp/lib/e2k64/libcapi20.so.4",
};

// ViPNet's service is a family of libraries under the system's names; the certificate library pulls in the others but
// the one with the system calls.
inline constexpr std::array vipNetPlaces = {
    "/opt/itcs/lib/libcrypt32.so",
    "/opt/itcs/lib64/libcrypt32.so",
    "/opt/itcs/lib/amd64/libcrypt32.so",
};
inline constexpr std::array kernel32Places = {
    "/opt/itcs/lib/libkernel32.so",
    "/opt/itcs/lib64/libkernel32.so",
    "/opt/itcs/lib/amd64/libkernel32.so",
};

inline constexpr std::array cryptoApiPlaces = {
    "/opt/itcs/lib/libadvapi32.so",
    "/opt/itcs/lib64/libadvapi32.so",
    "/opt/itcs/lib/amd64/libadvapi32.so",
};
inline constexpr std::array cryptoApi2Places = {
    "/opt/itcs/lib/libcrypt32.so",
    "/opt/itcs/lib64/libcrypt32.so",
    "/opt/itcs/lib/amd64/libcrypt32.so",
};

} // namespace orvik::plugin::internal
