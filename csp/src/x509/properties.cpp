#include "x509/properties.hpp"

#include "core/error.hpp"
#include "core/output.hpp"
#include "x509/blob.hpp"

namespace klunortredi::csp {

namespace {

std::optional<std::wstring> copyText(const wchar_t* text) {
    return text == nullptr ? std::nullopt : std::optional<std::wstring>(text);
}

} // namespace

KeyProviderInfo::KeyProviderInfo(const CRYPT_KEY_PROV_INFO& info)
    : container(copyText(info.pwszContainerName)), provider(copyText(info.pwszProvName)), providerType(info.dwProvType),
      flags(info.dwFlags), keySpec(info.dwKeySpec) {
    if (info.cProvParam != 0 && info.rgProvParam == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    for (DWORD i = 0; i < info.cProvParam; ++i) {
        const ByteView data = blobView(info.rgProvParam[i]);
        parameters.push_back(
            {info.rgProvParam[i].dwParam, Bytes(data.begin(), data.end()), info.rgProvParam[i].dwFlags});
    }
}

void KeyProviderInfo::deliver(void* buffer, DWORD* size) const {
    StructBuilder block(sizeof(CRYPT_KEY_PROV_INFO));
    const std::size_t array = parameters.empty() ? 0 : block.reserve(parameters.size() * sizeof(CRYPT_KEY_PROV_PARAM));
    auto& head = block.at<CRYPT_KEY_PROV_INFO>(0);
    head.dwProvType = providerType;
    head.dwFlags = flags;
    head.cProvParam = static_cast<DWORD>(parameters.size());
    head.dwKeySpec = keySpec;
    if (container) {
        block.text(offsetof(CRYPT_KEY_PROV_INFO, pwszContainerName), *container);
    }
    if (provider) {
        block.text(offsetof(CRYPT_KEY_PROV_INFO, pwszProvName), *provider);
    }
    if (!parameters.empty()) {
        block.point(offsetof(CRYPT_KEY_PROV_INFO, rgProvParam), array);
    }
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const std::size_t at = array + i * sizeof(CRYPT_KEY_PROV_PARAM);
        auto& parameter = block.at<CRYPT_KEY_PROV_PARAM>(at);
        parameter.dwParam = parameters[i].id;
        parameter.cbData = static_cast<DWORD>(parameters[i].data.size());
        parameter.dwFlags = parameters[i].flags;
        if (!parameters[i].data.empty()) {
            block.point(at + offsetof(CRYPT_KEY_PROV_PARAM, pbData), block.append(parameters[i].data));
        }
    }
    block.deliver(buffer, size);
}

void Properties::set(DWORD id, const void* data) {
    if (id == capi::CERT_KEY_PROV_INFO_PROP_ID) {
        if (data == nullptr) {
            keyProvider.reset();
        } else {
            keyProvider = KeyProviderInfo(*static_cast<const CRYPT_KEY_PROV_INFO*>(data)); // or the old one stays
        }
        return;
    }
    if (data == nullptr) {
        blobs.erase(id);
        return;
    }
    const ByteView value = blobView(*static_cast<const CRYPT_DATA_BLOB*>(data));
    blobs[id] = Bytes(value.begin(), value.end());
}

void Properties::addMissing(const Properties& other) {
    if (!keyProvider) {
        keyProvider = other.keyProvider;
    }
    blobs.insert(other.blobs.begin(), other.blobs.end());
}

} // namespace klunortredi::csp
