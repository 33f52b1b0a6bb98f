#pragma once

/// Names of providers: the aliases under which services list them, and the canonical names that the plug-in keeps.

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>

#include <string>

namespace orvik::plugin::wincrypt::tools {

/// Canonical name of a provider whose name contains a known alias, compared without case; none for any other name.
/// Answers are kept for the life of the process. Safe from any thread.
ORVIK_EXPORT boost::optional<std::wstring> resolveProviderName(const std::wstring& name);
/// The canonical name where there is one, else `name` unchanged.
ORVIK_EXPORT std::wstring formatProviderName(const std::wstring& name);

} // namespace orvik::plugin::wincrypt::tools
