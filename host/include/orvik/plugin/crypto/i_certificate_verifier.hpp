#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin::crypto {

/// Builds and judges a certificate's chain.
class ORVIK_EXPORT ICertificateVerifier {
public:
    ICertificateVerifier() = default;
    ICertificateVerifier(const ICertificateVerifier&) = delete;
    ICertificateVerifier& operator=(const ICertificateVerifier&) = delete;
    virtual ~ICertificateVerifier();

    virtual void initCA(const boost::filesystem::path& directory) = 0;
    virtual bool validateChain(unsigned int flags) const = 0;
    [[nodiscard]] virtual std::uint32_t status() const = 0;
    [[nodiscard]] virtual std::string statusString(long status) const = 0;
};

} // namespace orvik::plugin::crypto
