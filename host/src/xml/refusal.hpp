#pragma once

/// How the checks of a document and of a signature stop.

#include "orvik/plugin/xml/xml_document.hpp"

#include <stdexcept>
#include <string>

namespace orvik::plugin::xml::internal {

/// Ends the check of one signature with a verdict other than valid and the reason for it.
class Refusal : public std::runtime_error {
public:
    Refusal(XmlSignatureVerdict verdict, const std::string& reason) : std::runtime_error(reason), verdict_(verdict) {}
    [[nodiscard]] XmlSignatureVerdict verdict() const noexcept { return verdict_; }

private:
    XmlSignatureVerdict verdict_;
};

/// The signature is not a valid one.
[[noreturn]] inline void invalid(const std::string& reason) {
    throw Refusal(XmlSignatureVerdict::invalid, reason);
}

/// The signature cannot be judged here.
[[noreturn]] inline void unknown(const std::string& reason) {
    throw Refusal(XmlSignatureVerdict::unknown, reason);
}

/// Refuses the whole document: CryptoException unknownFormat with that reason.
[[noreturn]] void refuseDocument(const std::string& reason);

/// The text with every octet that is not printable ASCII written as "\xNN", cut to a length fit for a message.
std::string shown(const std::string& text);

} // namespace orvik::plugin::xml::internal
