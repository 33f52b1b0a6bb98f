#pragma once

/// The names of key containers: as callers write them, and as directories.

#include "capi/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// Which container: names are of a provider type, so that two types may use the same one.
struct ContainerId {
    std::string name; ///< plain name, UTF-8
    DWORD providerType;
    bool operator==(const ContainerId&) const = default;
};

/// The container that a caller names: by plain name, by qualified name, or either behind a reader (`\\.\reader\name`),
/// which is dropped: there is one place for containers. Throws ApiError(NTE_BAD_KEYSET_PARAM) for a name that none can
/// have: empty, `.` or `..`, too long, or with a slash, a backslash or a control character.
ContainerId parseContainerName(std::wstring_view given, DWORD providerType);

/// Refuses (NTE_BAD_KEYSET_PARAM) a name that PP_CONTAINER could not tell: see `parameterText`.
void checkNewName(const ContainerId& id);

/// The fully qualified name, UTF-8: a path whose last component is the plain name. It is the unique name, too.
std::string qualifiedName(const ContainerId& id);

/// `utf8` in the encoding in which container names travel as provider parameters: Windows-1251 for provider types 80
/// and 81, UTF-8 for the others.
std::string parameterText(const std::string& utf8, DWORD providerType);

/// The directory of a container. Injective, and readable: only `%` and a leading dot are written as %XX.
std::string directoryName(const ContainerId& id);
/// The reverse; nothing for a directory of another provider type or of no container.
std::optional<std::string> nameOfDirectory(std::string_view directory, DWORD providerType);

} // namespace klunortredi::csp
