#pragma once

/// The providers that the service enumerates, what the suite knows of their types, and throw-away containers.

#include "fixture.hpp"

#include <ostream>

namespace conformance {

struct OfferedProvider {
    DWORD type;
    std::string name;
};

/// The algorithms of a provider type, as the registers of the CryptoAPI's GOST and RSA providers have them.
struct ProviderKind {
    DWORD type;
    ALG_ID hash; ///< that the key pairs sign
    const char* hashOid;
    const char* keyOid;
    const char* signatureOid; ///< hash and key together, as X.509 names it
    ALG_ID signId;            ///< KP_ALGID of an AT_SIGNATURE key
    ALG_ID exchangeId;        ///< KP_ALGID of an AT_KEYEXCHANGE key
    DWORD signatureSize;      ///< octets; 0 where the key decides
};

/// Every provider in the order of enumeration.
std::vector<OfferedProvider> offeredProviders();
/// The kinds of key providers that the service offers, one row per type.
std::vector<ProviderKind> offeredKinds();

inline void PrintTo(const OfferedProvider& provider, std::ostream* out) {
    *out << provider.name;
}
inline void PrintTo(const ProviderKind& kind, std::ostream* out) {
    *out << "type " << kind.type;
}

/// Names a parameterised test after the provider type.
template <class Row>
std::string nameOfType(const testing::TestParamInfo<Row>& info) {
    return "Type" + std::to_string(info.param.type);
}

/// A context without a container.
Context verifyContext(DWORD type);

/// A container of the suite's own, made without a dialogue and deleted at the end. Throws when the service cannot do
/// that, which fails the test.
class ThrowAway {
public:
    /// Makes it with a key pair of each spec given; an empty PIN sets none.
    ThrowAway(DWORD type, std::initializer_list<DWORD> keySpecs, const std::string& pin = "conformance-1");
    ThrowAway(const ThrowAway&) = delete;
    ThrowAway& operator=(const ThrowAway&) = delete;
    ~ThrowAway();

    [[nodiscard]] const std::wstring& name() const { return name_; }
    [[nodiscard]] const std::string& pin() const { return pin_; }
    /// The context that made it: no PIN has to be presented.
    [[nodiscard]] unsigned long context() const { return context_.get(); }
    /// A further context of the container, silent, no PIN presented.
    [[nodiscard]] Context open() const;
    /// Closes the context that made it.
    void close() { context_ = Context(); }

private:
    DWORD type_;
    std::wstring name_;
    std::string pin_;
    Context context_;
};

/// A name that no container has.
std::wstring unusedName();
/// CryptSetProvParam with a PIN.
bool setPin(unsigned long context, const std::string& pin, DWORD flags);
/// The CERT_PUBLIC_KEY_INFO of a key pair.
Bytes publicKeyOf(unsigned long context, DWORD keySpec);

/// What no entry point may take for a handle of some kind: none, made-up numbers, and the handles of other kinds given.
std::vector<unsigned long> notHandles(std::initializer_list<unsigned long> ofOtherKinds);

// The codes that the documentation has for a handle that is none of its kind.
#define BAD_PROVIDER ::capi::ERROR_INVALID_HANDLE, ::capi::NTE_BAD_UID
#define BAD_KEY_HANDLE ::capi::NTE_BAD_KEY, ::capi::ERROR_INVALID_HANDLE
#define BAD_HASH_HANDLE ::capi::NTE_BAD_HASH, ::capi::ERROR_INVALID_HANDLE

} // namespace conformance
