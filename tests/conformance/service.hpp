#pragma once

/// The service under test: libraries opened as the plug-in's loader opens them, every entry point a member function.

#include "capi/constants.hpp"
#include "capi/entry_points.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace conformance {

/// The entry points of the service. Calling one that the service has not throws, which fails the test by name instead
/// of ending the process.
class Api {
public:
    /// `libraries` in the order in which they are searched. Throws std::runtime_error with the loader's words when one
    /// cannot be opened. They stay open until the process ends, as they do under the plug-in.
    explicit Api(const std::vector<std::string>& libraries);

    /// Whether the service has the entry point of that name, plain or with "A" behind it.
    [[nodiscard]] bool has(const std::string& symbol) const { return find(symbol) != nullptr; }

    // NOLINTBEGIN(bugprone-macro-parentheses)
#define CONFORMANCE_MEMBER(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                   \
    result member parameters const { return need(pointer##_, symbol) arguments; }                                      \
    result(*pointer##_) parameters = nullptr;
    // NOLINTEND(bugprone-macro-parentheses)
    KLUNORTREDI_ENTRY_POINTS(CONFORMANCE_MEMBER)
#undef CONFORMANCE_MEMBER

private:
    template <class Function>
    static Function need(Function function, const char* symbol) {
        if (function == nullptr) {
            throw std::runtime_error(std::string("the service has no ") + symbol);
        }
        return function;
    }
    [[nodiscard]] void* find(const std::string& symbol) const;

    std::vector<void*> libraries_;
};

/// Opens the service for the whole process; call once, before any test is registered.
void openService(const std::vector<std::string>& libraries);
/// The service that was opened.
const Api& api();

} // namespace conformance
