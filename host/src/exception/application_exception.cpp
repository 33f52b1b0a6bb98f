#include "orvik/plugin/exception/application_exception.hpp"

#include "code_category.hpp"

namespace orvik::plugin::exception {

namespace {

using Code = ApplicationException::Code;

constexpr internal::CodeText texts[] = {
    {static_cast<int>(Code::cancelled), "cancelled by the user"},
    {static_cast<int>(Code::emptyInput), "the input is empty"},
    {static_cast<int>(Code::timestampRefused), "the time-stamp authority refused the request"},
    {static_cast<int>(Code::timestampInvalid), "the time-stamp is not valid for this signature"},
    {static_cast<int>(Code::timestampMissing), "the time-stamp authority's response carries no time-stamp"},
};

} // namespace

const std::error_category& applicationCategory() noexcept {
    static const internal::CodeCategory category("Application", texts);
    return category;
}

ApplicationException::ApplicationException(Code code)
    : Exception(std::error_code(static_cast<int>(code), applicationCategory())) {}

ApplicationException::~ApplicationException() = default;

} // namespace orvik::plugin::exception
