#pragma once

#include <string>
#include <system_error>

namespace orvik::plugin::exception::internal {

/// A code and what it says to a person.
struct CodeText {
    int code;
    const char* text;
};

/// An error category over a table of texts.
template <std::size_t N>
class CodeCategory final : public std::error_category {
public:
    CodeCategory(const char* name, const CodeText (&texts)[N]) : name_(name), texts_(texts) {}

    [[nodiscard]] const char* name() const noexcept override { return name_; }

    [[nodiscard]] std::string message(int code) const override {
        for (const CodeText& row : texts_) {
            if (row.code == code) {
                return row.text;
            }
        }
        return "error " + std::to_string(code);
    }

private:
    const char* name_;
    const CodeText (&texts_)[N];
};

} // namespace orvik::plugin::exception::internal
