#pragma once

/// The fuzz targets that the tests replay. They end the process when a property is broken, and return 0 otherwise.

#include <cstddef>
#include <cstdint>

/// One DER certificate, or several: a target and its issuers.
extern "C" int fuzzCertificate(const std::uint8_t* data, std::size_t size);
/// One DER CRL.
extern "C" int fuzzCrl(const std::uint8_t* data, std::size_t size);
/// One DER answer about a certificate's status.
extern "C" int fuzzOcsp(const std::uint8_t* data, std::size_t size);
/// One octet that says of what kind it is, and an answer of an HTTP server.
extern "C" int fuzzHttpAnswer(const std::uint8_t* data, std::size_t size);
