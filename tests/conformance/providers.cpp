#include "providers.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace conformance {

namespace {

using namespace capi;

constexpr std::array kinds{
    ProviderKind{PROV_GOST_2012_256, CALG_GR3411_2012_256, "1.2.643.7.1.1.2.2", "1.2.643.7.1.1.1.1",
                 "1.2.643.7.1.1.3.2", CALG_GR3410_12_256, CALG_DH_GR3410_12_256_SF, 64},
    ProviderKind{PROV_GOST_2012_512, CALG_GR3411_2012_512, "1.2.643.7.1.1.2.3", "1.2.643.7.1.1.1.2",
                 "1.2.643.7.1.1.3.3", CALG_GR3410_12_512, CALG_DH_GR3410_12_512_SF, 128},
    ProviderKind{PROV_GOST_2001_DH, CALG_GR3411, "1.2.643.2.2.9", "1.2.643.2.2.19", "1.2.643.2.2.3", CALG_GR3410EL,
                 CALG_DH_EL_SF, 64},
    ProviderKind{PROV_RSA_AES, CALG_SHA_256, "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.1", "1.2.840.113549.1.1.11",
                 CALG_RSA_SIGN, CALG_RSA_KEYX, 0},
};

} // namespace

std::vector<OfferedProvider> offeredProviders() {
    constexpr DWORD limit = 256; // a service that never ends its list must not hang the suite
    std::vector<OfferedProvider> offered;
    for (DWORD index = 0; index < limit && api().has("CryptEnumProviders"); ++index) {
        DWORD type = 0;
        DWORD size = 0;
        if (api().CryptEnumProviders(index, nullptr, 0, &type, nullptr, &size) == 0 || size == 0) {
            break;
        }
        std::string name(size, '\0');
        if (api().CryptEnumProviders(index, nullptr, 0, &type, name.data(), &size) != 0) {
            name.resize(name.find('\0') == std::string::npos ? name.size() : name.find('\0'));
            offered.push_back({type, name});
        }
    }
    return offered;
}

std::vector<ProviderKind> offeredKinds() {
    const std::vector<OfferedProvider> offered = offeredProviders();
    std::vector<ProviderKind> found;
    std::ranges::copy_if(kinds, std::back_inserter(found), [&](const ProviderKind& kind) {
        return std::ranges::find(offered, kind.type, &OfferedProvider::type) != offered.end();
    });
    return found;
}

Context verifyContext(DWORD type) {
    Context context;
    must(api().CryptAcquireContextW(context.address(), nullptr, nullptr, type, CRYPT_VERIFYCONTEXT | CRYPT_SILENT) != 0,
         "acquiring a context without a container");
    return context;
}

std::wstring unusedName() {
    static int count = 0;
    return L"conformance-" + std::to_wstring(getpid()) + L'-' + std::to_wstring(++count);
}

ThrowAway::ThrowAway(DWORD type, std::initializer_list<DWORD> keySpecs, const std::string& pin)
    : type_(type), name_(unusedName()), pin_(pin) {
    must(api().CryptAcquireContextW(context_.address(), name_.c_str(), nullptr, type, CRYPT_NEWKEYSET | CRYPT_SILENT) !=
             0,
         "making a container without a dialogue");
    must(pin.empty() || setPin(context_.get(), pin, PIN_SET_NEW), "giving a new container its PIN");
    for (const DWORD keySpec : keySpecs) {
        Key key;
        must(api().CryptGenKey(context_.get(), keySpec, 0, key.address()) != 0, "making a key pair");
    }
}

ThrowAway::~ThrowAway() {
    close();
    unsigned long deleted = 0;
    api().CryptAcquireContextW(&deleted, name_.c_str(), nullptr, type_, CRYPT_DELETEKEYSET | CRYPT_SILENT);
}

Context ThrowAway::open() const {
    Context context;
    must(api().CryptAcquireContextW(context.address(), name_.c_str(), nullptr, type_, CRYPT_SILENT) != 0,
         "opening the container");
    return context;
}

bool setPin(unsigned long context, const std::string& pin, DWORD flags) {
    return api().CryptSetProvParam(context, PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), flags) != 0;
}

Bytes publicKeyOf(unsigned long context, DWORD keySpec) {
    return fetch([&](void* buffer, DWORD* size) {
        return api().CryptExportPublicKeyInfo(context, keySpec, X509_ASN_ENCODING,
                                              static_cast<CERT_PUBLIC_KEY_INFO*>(buffer), size) != 0;
    });
}

std::vector<unsigned long> notHandles(std::initializer_list<unsigned long> ofOtherKinds) {
    constexpr unsigned long madeUp = 0x4D414445;
    std::vector<unsigned long> handles{0, 1, ~0UL, madeUp};
    handles.insert(handles.end(), ofOtherKinds);
    return handles;
}

} // namespace conformance
