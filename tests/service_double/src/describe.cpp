// Arguments as text. Numbers are decimal up to 0xFFFF and hexadecimal above; handles go by their kind and number
// ("context1"), texts are quoted, "&234" is a size going in, "&" a place for a result, "pointer" anything else.

#include "dispatch.hpp"
#include "model.hpp"

#include <array>
#include <cstdint>
#include <cstdio>

namespace service_double {

namespace {

constexpr unsigned long largestDecimal = 0xFFFF;

std::string number(unsigned long value) {
    if (value <= largestDecimal) {
        return std::to_string(value);
    }
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%lX", value);
    return text.data();
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

/// Sizes that go in and come out; every other DWORD pointer is a place for a result.
bool isSize(const std::string& name) {
    return name.starts_with("pcb") || name.starts_with("pcch") || name == "pdwDataLen" || name == "pdwSigLen";
}

std::string handleName(unsigned long handle) {
    const Lock lock(stateMutex());
    const auto& now = state();
    for (const auto& name : {now.contexts.name(handle), now.keys.name(handle), now.hashes.name(handle),
                             now.messages.name(handle), now.stores.name(handle)}) {
        if (!name.empty()) {
            return name;
        }
    }
    return {};
}

} // namespace

std::string describe(const std::string& /*name*/, DWORD value) {
    return number(value);
}

std::string describe(const std::string& /*name*/, BOOL value) {
    return std::to_string(value);
}

std::string describe(const std::string& /*name*/, unsigned long handle) {
    const auto name = handleName(handle);
    return name.empty() ? number(handle) : name;
}

std::string describe(const std::string& /*name*/, unsigned long* handle) {
    return handle == nullptr ? "null" : "&";
}

std::string describe(const std::string& name, DWORD* size) {
    if (size == nullptr) {
        return "null";
    }
    return isSize(name) ? "&" + std::to_string(*size) : "&";
}

std::string describe(const std::string& /*name*/, const char* text) {
    const auto value = reinterpret_cast<std::uintptr_t>(text);
    if (value <= largestDecimal) { // structure types and store providers are small numbers in pointers
        return text == nullptr ? "null" : std::to_string(value);
    }
    return quoted(text);
}

std::string describe(const std::string& /*name*/, char* buffer) {
    return buffer == nullptr ? "null" : "pointer";
}

std::string describe(const std::string& /*name*/, const wchar_t* text) {
    return text == nullptr ? "null" : quoted(toUtf8(text));
}

std::string describe(const std::string& /*name*/, wchar_t* buffer) {
    return buffer == nullptr ? "null" : "pointer";
}

std::string describe(const std::string& /*name*/, PCCERT_CONTEXT context) {
    if (context == nullptr) {
        return "null";
    }
    const Lock lock(stateMutex());
    const auto certificate = findCertificate(context);
    return certificate ? "certificate" + std::to_string(certificate->number) : "pointer";
}

std::string describe(const std::string& name, const void* pointer) {
    if (pointer == nullptr) {
        return "null";
    }
    if (name == "pvKey") {
        return quoted(static_cast<const char*>(pointer));
    }
    const auto known = handleName(toHandle(pointer));
    return known.empty() ? "pointer" : known;
}

std::vector<std::string> parameterNames(const std::string& list) {
    std::vector<std::string> names;
    std::string name;
    for (const char c : list) {
        if (c == ',' || c == ')') {
            names.push_back(name);
            name.clear();
        } else if (c == ' ' || c == '*' || c == '(') {
            name.clear();
        } else {
            name += c;
        }
    }
    return names;
}

} // namespace service_double
