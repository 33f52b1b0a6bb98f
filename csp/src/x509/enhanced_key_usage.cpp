#include "x509/enhanced_key_usage.hpp"

#include "asn1/der.hpp"
#include "core/output.hpp"
#include "x509/blob.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

using Usages = std::optional<std::vector<std::string>>;

constexpr const char* extensionOid = "2.5.29.37";
constexpr DWORD usageProperty = 9; ///< CERT_ENHKEY_USAGE_PROP_ID: the extension's DER

std::vector<std::string> decodeUsage(ByteView encoded) {
    std::vector<std::string> oids;
    der::Reader list(der::readOnly(encoded, der::tag::Sequence).content);
    while (!list.empty()) {
        oids.push_back(der::toOid(list.read(der::tag::ObjectIdentifier)));
    }
    return oids;
}

Usages extensionUsage(const Certificate& certificate) {
    const CERT_INFO& info = certificate.info();
    const CERT_EXTENSION* const extension = findExtension(extensionOid, info.cExtension, info.rgExtension);
    return extension == nullptr ? Usages{} : decodeUsage(blobView(extension->Value));
}

Usages propertyUsage(const Certificate& certificate) {
    const Properties properties = certificate.properties();
    const auto found = properties.blobs.find(usageProperty);
    return found == properties.blobs.end() ? Usages{} : decodeUsage(found->second);
}

} // namespace

Usages enhancedKeyUsage(const Certificate& certificate, DWORD flags) {
    Usages fromExtension = (flags & propertyUsageOnly) != 0 ? Usages{} : extensionUsage(certificate);
    Usages fromProperty = (flags & extensionUsageOnly) != 0 ? Usages{} : propertyUsage(certificate);
    if (!fromExtension || !fromProperty) {
        return fromExtension ? fromExtension : fromProperty;
    }
    std::erase_if(*fromExtension,
                  [&](const std::string& oid) { return std::ranges::find(*fromProperty, oid) == fromProperty->end(); });
    return fromExtension;
}

void deliverUsage(const std::vector<std::string>& oids, void* buffer, DWORD* size) {
    StructBuilder block(sizeof(CERT_ENHKEY_USAGE));
    block.at<CERT_ENHKEY_USAGE>(0).cUsageIdentifier = static_cast<DWORD>(oids.size());
    if (!oids.empty()) {
        const std::size_t pointers = block.reserve(oids.size() * sizeof(char*));
        block.point(offsetof(CERT_ENHKEY_USAGE, rgpszUsageIdentifier), pointers);
        for (std::size_t i = 0; i < oids.size(); ++i) {
            block.text(pointers + i * sizeof(char*), std::string_view(oids[i]));
        }
    }
    block.deliver(buffer, size);
}

} // namespace klunortredi::csp
