#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <cstddef>
#include <iosfwd>
#include <string>

namespace orvik::plugin::crypto {

/// Incremental hashing, and signatures over the hash. Digests and signatures are octets in strings.
class ORVIK_EXPORT IHash {
public:
    IHash() = default;
    IHash(const IHash&) = delete;
    IHash& operator=(const IHash&) = delete;
    virtual ~IHash();

    /// Digest of everything left in the stream.
    virtual std::string create(std::istream& stream) = 0;
    virtual std::string sign() = 0;
    virtual void initialize() = 0;
    virtual void update(const unsigned char* data, std::size_t length) = 0;
    virtual std::string finalize() = 0;
    virtual bool verify(boost::string_view signature) = 0;
};

} // namespace orvik::plugin::crypto
