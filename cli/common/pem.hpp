#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace klunortredi::cli {

/// Octets as a PEM block (RFC 7468), written while they come: lines of 64 characters between the lines of the label.
class PemWriter {
public:
    using Output = std::function<void(std::string_view text)>;

    /// Writes the first line to `output`.
    PemWriter(Output output, std::string label);

    void write(std::string_view der);
    /// Writes the rest and the last line. Nothing may follow.
    void finish();

private:
    void writeLines(std::string_view der);

    Output output_;
    std::string label_;
    std::string rest_; ///< octets that do not fill a line yet
};

/// `der` as one PEM block.
std::string toPem(std::string_view der, const std::string& label);

} // namespace klunortredi::cli
