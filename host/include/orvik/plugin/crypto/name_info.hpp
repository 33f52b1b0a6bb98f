#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvik::plugin::crypto {

/// A distinguished name, attribute by attribute in the certificate's order: dotted OID and UTF-8 value.
struct NameInfo {
    std::vector<std::pair<std::string, std::string>> attributes;

    /// First value of the attribute; empty when absent.
    [[nodiscard]] std::string value(const std::string& oid) const {
        for (const auto& [key, text] : attributes) {
            if (key == oid) {
                return text;
            }
        }
        return {};
    }
};

/// Extended key usages as dotted OIDs, in the certificate's order.
using EnhancedKeyUsage = std::vector<std::string>;

} // namespace orvik::plugin::crypto
