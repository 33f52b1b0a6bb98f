#pragma once

/// What the double keeps behind its handles.

#include "service_double/flatten.hpp"
#include "service_double/service_double.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace service_double {

struct ContextObject {
    std::string library;
    std::string provider; ///< by name, for the script may change under it
    std::optional<std::wstring> container;
    std::size_t references = 1;
    std::size_t ownedByService = 0; ///< references that no caller has to give back
    std::size_t nextAlgorithm = 0;
    std::size_t nextContainer = 0;
};

struct KeyObject {
    unsigned long context;
    DWORD spec;
    std::string publicOctets;
};

struct HashObject {
    unsigned long context;
    ALG_ID algorithm;
    std::string data;
    bool finished = false;
};

struct MessageObject {
    bool decodes;
    DWORD flags;
    std::optional<CMSG_STREAM_INFO> stream;
    std::string content;
    bool begun = false;
};

struct CertificateObject {
    CERT_CONTEXT context{};
    std::string der;
    std::string block; ///< pCertInfo lies here
    std::map<DWORD, std::string> properties;
    std::optional<Flat> keyProviderInfo;
    std::size_t references = 0; ///< callers' ones
    std::size_t number = 0;
};
using CertificatePointer = std::shared_ptr<CertificateObject>;

struct StoreObject {
    std::string name; ///< of a system store; empty for others
    std::vector<CertificatePointer> certificates;
};

/// Objects of one kind by handle. Handles are never used again, so a stale one is seen as such.
template <class Object>
class Table {
public:
    Table(unsigned long base, std::string kind) : base_(base), kind_(std::move(kind)) {}

    unsigned long add(Object object) {
        objects_.emplace(base_ + ++last_, std::move(object));
        return base_ + last_;
    }
    Object* find(unsigned long handle) {
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : &found->second;
    }
    bool erase(unsigned long handle) { return objects_.erase(handle) != 0; }
    /// "context1" for a handle that this table gave out at any time; empty for others.
    [[nodiscard]] std::string name(unsigned long handle) const {
        return handle > base_ && handle <= base_ + last_ ? kind_ + std::to_string(handle - base_) : std::string();
    }
    [[nodiscard]] const std::map<unsigned long, Object>& objects() const { return objects_; }

private:
    unsigned long base_;
    std::string kind_;
    unsigned long last_ = 0;
    std::map<unsigned long, Object> objects_;
};

/// Everything but the script. Guarded by `mutex`; answers lock it, the test's own answers run without.
struct State {
    Table<ContextObject> contexts{0x11000000, "context"};
    Table<KeyObject> keys{0x22000000, "key"};
    Table<HashObject> hashes{0x33000000, "hash"};
    Table<MessageObject> messages{0x44000000, "message"};
    Table<StoreObject> stores{0x55000000, "store"};
    std::map<PCCERT_CONTEXT, CertificatePointer> certificates; ///< kept when freed, so that a second free is seen
    std::map<std::string, std::vector<CertificatePointer>> systemStores;
    std::set<PCCERT_CHAIN_CONTEXT> chains;
    std::set<void*> memory;
    std::map<std::string, CRYPT_OID_INFO> oidInfos;
    std::vector<std::string> misuses;

    std::vector<Call> calls;
    std::size_t callsUntilFailure = 0; ///< 0: none is to fail
    DWORD failureCode = 0;
    std::string failedCall;
    std::string failedFunction;
    std::map<std::string, DWORD> failingFunctions;
};

std::recursive_mutex& stateMutex();
State& state();
/// Holds the state for the length of an answer.
using Lock = std::lock_guard<std::recursive_mutex>;

/// A release of something that is not held.
BOOL misuse(const std::string& text, DWORD code);

inline void* toPointer(unsigned long handle) {
    return reinterpret_cast<void*>(handle);
}
inline unsigned long toHandle(const void* pointer) {
    return reinterpret_cast<unsigned long>(pointer);
}

/// The script's record behind a context; null when the script no longer has it.
std::vector<Provider>& installedProviders(const std::string& library);
Provider* providerOf(unsigned long context);
Container* containerOf(unsigned long context);
/// What CryptAcquireContextW does, for those that acquire by other ways.
BOOL acquire(unsigned long* handle, const wchar_t* container, const wchar_t* provider, DWORD type, DWORD flags);

/// A parsed certificate without references; null for octets that are no certificate.
CertificatePointer parseCertificate(const std::string& der);
/// One more caller's reference.
PCCERT_CONTEXT hold(const CertificatePointer& certificate);
/// Gives one back; counts a misuse when none is held.
BOOL letGo(PCCERT_CONTEXT context, const char* function);
CertificatePointer findCertificate(PCCERT_CONTEXT context);
Flat flatPublicKey(const PublicKey& key);

std::string toUtf8(const std::wstring& text);
std::wstring fromUtf8(const std::string& text);
std::string toCp1251(const std::wstring& text);
/// SHA-1 for CALG_SHA1, SHA-256 for every other algorithm: a digest to compare, not the algorithm's own.
std::string digestOf(ALG_ID algorithm, const std::string& data);

} // namespace service_double
