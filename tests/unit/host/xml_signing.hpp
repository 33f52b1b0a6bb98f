#pragma once

#include "signer.hpp"

#include <cstddef>
#include <string>

namespace host_test {

/// The document with an enveloped signature, fed to the framework's creator in chunks of that size (0: whole).
std::string signXml(const Signer& signer, const std::string& document, std::size_t chunk = 0);

} // namespace host_test
