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
/// One octet that chooses the structure type, and its DER.
extern "C" int fuzzObjects(const std::uint8_t* data, std::size_t size);
/// DER of a name, or the text of a value.
extern "C" int fuzzNames(const std::uint8_t* data, std::size_t size);
/// A file of a certificate store.
extern "C" int fuzzStoreFile(const std::uint8_t* data, std::size_t size);
