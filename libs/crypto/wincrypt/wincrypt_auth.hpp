#pragma once

#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin::wincrypt {

/// PIN login on an open provider context.
class ORVIK_EXPORT WincryptAuth : public crypto::IAuthHandle {
public:
    /// `context` stays the caller's and must outlive the object.
    explicit WincryptAuth(unsigned long context);
    ~WincryptAuth() override;

    /// Hands the PIN to the service and has it verified. A failure is logged and counted.
    bool login(const std::string& pin) override;
    [[nodiscard]] std::uint32_t status() const override;
    [[nodiscard]] std::uint64_t states() const override;
    /// Name of the context's container, without the folders of a container that is a file.
    [[nodiscard]] std::wstring container() const override;
    /// Always 3.
    [[nodiscard]] boost::optional<unsigned> maxAttempts() const override;
    /// True from the third failed login on, whatever succeeds later.
    [[nodiscard]] bool isAuthRejected() const override;

    /// Whether the context's provider takes PINs.
    [[nodiscard]] bool supportAuthentication() const;

private:
    bool succeed();
    bool fail();

    std::uint32_t status_;
    std::uint64_t states_;
    std::uint32_t failedAttempts_;
    unsigned long context_;
    std::wstring container_;
};

} // namespace orvik::plugin::wincrypt
