#include "keys/container_name.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"
#include "text/unicode.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

constexpr std::string_view qualifier = "KLUNORTREDI/";
constexpr std::wstring_view devicePrefix = L"\\\\.\\";
// A file name holds 255 octets: what the directory adds (type, temporary prefix) and the escapes must fit as well.
constexpr std::size_t longestDirectory = 240;
constexpr std::string_view escapedPercent = "%25";
constexpr std::string_view escapedDot = "%2E"; // a leading one

bool isForbidden(char octet) {
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char del = 0x7F;
    const auto value = static_cast<unsigned char>(octet);
    return value < firstPrintable || value == del || octet == '/' || octet == '\\';
}

std::wstring_view withoutReader(std::wstring_view given) {
    if (!given.starts_with(devicePrefix)) {
        return given;
    }
    const std::size_t separator = given.find(L'\\', devicePrefix.size());
    return separator == std::wstring_view::npos ? given : given.substr(separator + 1);
}

std::string suffix(DWORD providerType) {
    return '.' + std::to_string(providerType);
}

} // namespace

ContainerId parseContainerName(std::wstring_view given, DWORD providerType) {
    auto name = utf8FromWide(withoutReader(given));
    if (!name) {
        fail(capi::NTE_BAD_KEYSET_PARAM);
    }
    if (name->starts_with(qualifier)) {
        name->erase(0, qualifier.size());
    }
    if (name->empty() || *name == "." || *name == ".." || std::any_of(name->begin(), name->end(), isForbidden)) {
        fail(capi::NTE_BAD_KEYSET_PARAM);
    }
    ContainerId id{std::move(*name), providerType};
    if (directoryName(id).size() > longestDirectory) {
        fail(capi::NTE_BAD_KEYSET_PARAM);
    }
    return id;
}

void checkNewName(const ContainerId& id) {
    try {
        parameterText(id.name, id.providerType);
    } catch (const ApiError&) {
        fail(capi::NTE_BAD_KEYSET_PARAM);
    }
}

std::string qualifiedName(const ContainerId& id) {
    return std::string(qualifier) + id.name;
}

std::string parameterText(const std::string& utf8, DWORD providerType) {
    if (providerType != capi::PROV_GOST_2012_256 && providerType != capi::PROV_GOST_2012_512) {
        return utf8;
    }
    auto text = cp1251FromUtf8(utf8);
    if (!text) {
        fail(capi::ERROR_INVALID_DATA);
    }
    return *std::move(text);
}

std::string directoryName(const ContainerId& id) {
    std::string directory;
    for (const char octet : id.name) {
        if (octet == '%') {
            directory += escapedPercent;
        } else if (octet == '.' && directory.empty()) {
            directory += escapedDot;
        } else {
            directory += octet;
        }
    }
    return directory + suffix(id.providerType);
}

std::optional<std::string> nameOfDirectory(std::string_view directory, DWORD providerType) {
    const std::string end = suffix(providerType);
    if (!directory.ends_with(end)) {
        return std::nullopt;
    }
    ContainerId id{{}, providerType};
    std::string_view rest = directory.substr(0, directory.size() - end.size());
    while (!rest.empty()) {
        const bool dot = rest.starts_with(escapedDot);
        const bool percent = rest.starts_with(escapedPercent);
        id.name += dot ? '.' : rest.front();
        rest.remove_prefix(dot || percent ? escapedDot.size() : 1);
    }
    // What is not written as this service writes it (a temporary directory among them) is no container.
    return !id.name.empty() && directoryName(id) == directory ? std::optional(id.name) : std::nullopt;
}

} // namespace klunortredi::csp
