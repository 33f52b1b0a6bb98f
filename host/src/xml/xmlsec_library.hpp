#pragma once

#include <string>

namespace orvik::plugin::xml::internal {

/// Sets xmlsec up with OpenSSL and the GOST transforms, once for the process; thread-safe. Its error reports go to the
/// log. Throws std::runtime_error when that fails.
void requireXmlsec();

/// What xmlsec has reported in this thread since the last call; empty when nothing.
std::string takeXmlsecReport();

} // namespace orvik::plugin::xml::internal
