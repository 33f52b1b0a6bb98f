#pragma once

/// Failures of the CryptoAPI as exceptions.

#include "orvik/plugin/exception/exception.hpp"
#include "orvik/plugin/export.hpp"

#include <system_error>

namespace orvik::plugin::crypto::exception {

/// A failed CryptoAPI call. code() is the service's error number, its category systemCategory(), so code().message()
/// is the service's own text in UTF-8.
///
/// Construct it at the line after the failed call, before anything else can touch the last error.
class ORVIK_EXPORT SystemException : public plugin::exception::Exception {
public:
    /// The calling thread's last error of the service; 0 when no service is installed.
    SystemException();
    explicit SystemException(int code);
    /// The same number as the CryptoAPI writes it (0x80090016 ...).
    explicit SystemException(unsigned code);
    SystemException(const SystemException&) = default;
    SystemException& operator=(const SystemException&) = default;
    ~SystemException() override;

    /// "CryptoError: " and the code as unsigned decimal. The text lies in one string per thread, which the next call
    /// rewrites: copy it at once.
    [[nodiscard]] const char* error() const override;

    /// Whether the code says that the person dismissed a dialogue. ERROR_INVALID_PARAMETER counts too, because some
    /// services report a dismissed PIN dialogue with it.
    [[nodiscard]] static bool cancelled(int code);
    [[nodiscard]] static bool cancelled(unsigned code);
    [[nodiscard]] bool cancelled() const;
};

/// Name "System"; messages from the service's message table, empty when it has none.
ORVIK_EXPORT const std::error_category& systemCategory();

} // namespace orvik::plugin::crypto::exception
