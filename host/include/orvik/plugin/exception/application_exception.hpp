#pragma once

#include "orvik/plugin/exception/exception.hpp"

namespace orvik::plugin::exception {

/// What went wrong between the application and its user, by the framework's numbers.
class ORVIK_EXPORT ApplicationException : public Exception {
public:
    enum class Code : int {
        cancelled = 20003,        ///< the person cancelled
        emptyInput = 20006,       ///< nothing where data is needed
        timestampRefused = 20016, ///< the time-stamp authority did not grant the request
        timestampInvalid = 20017, ///< the token is for something else, or its signature is not valid
        timestampMissing = 20018, ///< the response carries no token
    };

    explicit ApplicationException(Code code);
    ApplicationException(const ApplicationException&) = default;
    ApplicationException& operator=(const ApplicationException&) = default;
    ~ApplicationException() override;
};

/// The category whose messages are the texts of these codes.
ORVIK_EXPORT const std::error_category& applicationCategory() noexcept;

} // namespace orvik::plugin::exception
