#pragma once

/// Errors of the service's own rooms as failures of the command.

#include "core/error.hpp"
#include "failure.hpp"
#include "keys/container.hpp"

#include <string>

namespace klunortredi::admin {

/// `what` failed with that code of the service.
cli::Failure refusal(const std::string& what, const csp::ApiError& error);
/// The same after a PIN was given: a wrong one is told with the tries that are left.
cli::Failure pinRefusal(const std::string& what, const csp::ApiError& error, const csp::Container& container);
/// The exception that is being handled, whatever it is.
cli::Failure currentRefusal(const std::string& what);

} // namespace klunortredi::admin
