#include "pem.hpp"

#include "orvik/plugin/base64.hpp"

#include <algorithm>
#include <utility>

namespace klunortredi::cli {

namespace {

/// Octets in a line of 64 characters.
constexpr std::size_t lineOctets = 48;

} // namespace

PemWriter::PemWriter(Output output, std::string label) : output_(std::move(output)), label_(std::move(label)) {
    output_("-----BEGIN " + label_ + "-----\n");
}

void PemWriter::write(std::string_view der) {
    if (!rest_.empty()) {
        const auto filling = der.substr(0, lineOctets - rest_.size());
        rest_ += filling;
        der.remove_prefix(filling.size());
        if (rest_.size() < lineOctets) {
            return;
        }
        writeLines(rest_);
    }
    const auto whole = der.size() / lineOctets * lineOctets;
    writeLines(der.substr(0, whole));
    rest_ = der.substr(whole);
}

void PemWriter::finish() {
    writeLines(rest_);
    output_("-----END " + label_ + "-----\n");
}

void PemWriter::writeLines(std::string_view der) {
    std::string text;
    for (; !der.empty(); der.remove_prefix(std::min(lineOctets, der.size()))) {
        const auto line = der.substr(0, lineOctets);
        text += orvik::plugin::base64::encode({line.data(), line.size()});
        text += '\n';
    }
    if (!text.empty()) {
        output_(text);
    }
}

std::string toPem(std::string_view der, const std::string& label) {
    std::string pem;
    PemWriter writer([&pem](std::string_view text) { pem += text; }, label);
    writer.write(der);
    writer.finish();
    return pem;
}

} // namespace klunortredi::cli
