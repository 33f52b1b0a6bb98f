#include "link.hpp"

#include "capi/constants.hpp"
#include "containers.hpp"
#include "stores/system_store.hpp"
#include "text/unicode.hpp"
#include "x509/certificate.hpp"

#include <string>

namespace klunortredi::admin {

void linkInStoreMy(csp::ByteView certificate, const csp::ContainerId& id) {
    csp::Properties properties;
    properties.keyProvider.emplace();
    properties.keyProvider->container = csp::wideFromUtf8(csp::qualifiedName(id));
    properties.keyProvider->provider = csp::wideFromUtf8(std::string(providerOf(id).name));
    properties.keyProvider->providerType = id.providerType;
    properties.keyProvider->keySpec = capi::AT_KEYEXCHANGE;
    csp::SystemStore::open("my")->add(csp::Certificate(certificate, properties), csp::AddRule::Replace);
}

} // namespace klunortredi::admin
