#pragma once

/// The framework's exceptions: a std::error_code, plus whatever Boost.Exception information a thrower attaches.

#include "orvik/plugin/export.hpp"

#include <boost/exception/error_info.hpp>
#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>

#include <exception>
#include <source_location>
#include <string>
#include <system_error>

namespace orvik::plugin::exception {

/// A text for a person, attached with `<<`.
using Message_ = boost::error_info<struct MessageTag, std::string>;
/// The offending value, attached with setValue.
using Value_ = boost::error_info<struct ValueTag, std::string>;

/// Base of every exception that the framework and its plug-ins throw on purpose.
class ORVIK_EXPORT Exception : public virtual std::exception, public virtual boost::exception {
public:
    explicit Exception(std::error_code code);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    /// The attached Message_ where there is one, else the code's own message; with the attached value behind it.
    [[nodiscard]] const char* what() const noexcept override;
    /// The code as text, for logs and programs.
    [[nodiscard]] virtual const char* error() const;

    [[nodiscard]] const std::error_code& code() const noexcept { return code_; }

private:
    std::error_code code_;
    std::string error_;
    mutable std::string what_;
};

/// Attaches the value (or user-facing text) that the exception is about.
template <class E>
E&& setValue(E&& e, const std::string& value) {
    e << Value_(value);
    return std::forward<E>(e);
}

/// Where a throw stands: file name without extension, function, and the line when another than the throw's own is known
/// to the outside.
struct Location {
    const char* file;
    const char* function;
    int line = 0;
};

/// Throws a copy of `e` with the location attached as boost::throw_file, throw_function and throw_line.
template <class E>
[[noreturn]] void raise(E e, const Location& where, std::source_location at = std::source_location::current()) {
    const int line = where.line != 0 ? where.line : static_cast<int>(at.line());
    e << boost::throw_file(where.file) << boost::throw_function(where.function) << boost::throw_line(line);
    throw e; // NOLINT(hicpp-exception-baseclass)
}

/// Everything known of the exception in flight, for logs. Call it inside a catch block.
ORVIK_EXPORT std::string diagnostic();

} // namespace orvik::plugin::exception
