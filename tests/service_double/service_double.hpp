#pragma once

/// A CryptoAPI service that a test scripts.
///
/// The service's libraries (see libraryPath) are thin: every entry point they export lands here, in one library that
/// the test links too. Each call is recorded, then, in this order: fails when the test said so; is answered by the
/// test's own function in `on`; is answered by Defaults, which keep small objects in memory. Every acquire is counted
/// against its release.

#include "capi/entry_points.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace service_double {

/// The public key of a container, or of a certificate.
struct PublicKey {
    std::string oid;
    std::string parameters; ///< DER, may be empty
    std::string key;
};

struct Container {
    std::wstring name;              ///< PP_CONTAINER; Windows-1251 on the wire for provider types 80 and 81, else UTF-8
    std::wstring uniqueName;        ///< PP_UNIQUE_CONTAINER, the same way; NTE_BAD_TYPE when empty
    std::wstring qualifiedName;     ///< PP_ENUMCONTAINERS, UTF-8; `name` when empty
    std::vector<DWORD> keySpecs{1}; ///< which keys it holds
    PublicKey publicKey{"1.2.643.7.1.1.1.1", "", "public key"};
    std::string certificate;    ///< DER, KP_CERTIFICATE; empty: none
    std::string pin;            ///< what a verification of the PIN accepts
    bool needsDialogue = false; ///< CRYPT_SILENT fails with NTE_SILENT_CONTEXT
};

struct Provider {
    std::string name; ///< octets as enumerated, without the zero
    DWORD type = 80;
    DWORD version = 0x0500;
    std::vector<PROV_ENUMALGS> algorithms;
    std::vector<Container> containers;
    std::map<DWORD, std::string> parameters; ///< further provider parameters, whole values
};

struct OidInfo {
    ALG_ID algorithm;
    std::wstring cngName; ///< null pointer when empty
};

/// What every message opened to decode turns out to hold.
struct Message {
    std::string content;
    std::vector<std::string> certificates; ///< DER
    std::vector<std::string> signers;      ///< DER of each signer's certificate
    std::vector<std::string> recipients;   ///< DER of each recipient's certificate; none: the message is not enveloped
    bool valid = true;                     ///< what CMSG_CTRL_VERIFY_SIGNATURE says
    /// Further parameters by (type, index), whole values; they come before what the fields above give.
    std::map<std::pair<DWORD, DWORD>, std::string> parameters;
};

/// A provider parameter as CryptSetProvParam was given it; texts end before their zero.
struct ParameterSet {
    DWORD parameter;
    std::string value;
    DWORD flags;
    friend bool operator==(const ParameterSet&, const ParameterSet&) = default;
};

struct Call {
    std::string library;  ///< which of the service's libraries was called ("full", "vipnet" ...)
    std::string function; ///< the member's name in the list of entry points
    std::string text;     ///< "CryptReleaseContext(context1, 0)"; see describe.hpp
};

/// One answer per entry point; empty ones leave the call to Defaults.
struct Answers {
#define SERVICE_DOUBLE_ANSWER(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                \
    std::function<result parameters> member;
    KLUNORTREDI_ENTRY_POINTS(SERVICE_DOUBLE_ANSWER)
#undef SERVICE_DOUBLE_ANSWER
};

/// The answers that are given where the test gives none. A test's own answer may call them.
struct Defaults {
#define SERVICE_DOUBLE_DEFAULT(reach, qualifier, result, member, pointer, symbol, parameters, arguments)               \
    static result member parameters;
    KLUNORTREDI_ENTRY_POINTS(SERVICE_DOUBLE_DEFAULT)
#undef SERVICE_DOUBLE_DEFAULT
};

/// The script and the record. One per process; use it from one thread while no other calls the service.
class Service {
public:
    /// The test's own answers.
    Answers on;

    /// Installed providers by library name; a library without an entry uses the one named "".
    std::map<std::string, std::vector<Provider>> providers;
    std::map<std::string, std::vector<std::string>> systemStores; ///< DER by store name
    std::map<std::string, OidInfo> oids;
    std::map<DWORD, std::string> messages; ///< FormatMessage, octets in Windows-1251
    Message message;
    DWORD chainStatus = 0;   ///< CERT_TRUST_STATUS.dwErrorStatus of every chain
    bool callerFrees = true; ///< CryptAcquireCertificatePrivateKey gives the context away
    SYSTEMTIME now{2026, 11, 5, 20, 12, 30, 45, 0};

    /// What CryptSetProvParam was given, in order.
    std::vector<ParameterSet> parametersSet;

    /// Back to an empty script and an empty record. What is still held is forgotten.
    void reset();

    /// Everything called so far, in order. Last-error traffic is left out.
    [[nodiscard]] std::vector<Call> calls() const;
    /// The texts of calls().
    [[nodiscard]] std::vector<std::string> trace() const;
    [[nodiscard]] std::size_t count(const std::string& function) const;
    void clearCalls();

    /// The n-th call from now that can fail (1 is the next) fails with `code`. A release that fails still releases.
    void failCall(std::size_t n, DWORD code);
    /// Text of the call that failCall made fail; empty while it did not come to it.
    [[nodiscard]] std::string failedCall() const;
    /// Its function's name.
    [[nodiscard]] std::string failedFunction() const;
    /// Every call of that function fails with `code`; 0 takes it back.
    void failFunction(const std::string& function, DWORD code);

    /// What is not given back, or was given back too often, line by line; empty when the books balance.
    [[nodiscard]] std::string imbalance() const;

    /// A certificate context as a caller of the service gets it, with one reference for the test to free. Throws
    /// std::invalid_argument for octets that are no certificate.
    [[nodiscard]] PCCERT_CONTEXT makeCertificate(const std::string& der);
};

Service& service();

/// Sets the calling thread's last error and returns FALSE (0, null): the way an answer fails.
struct Failed {
    operator int() const { return 0; }
    operator unsigned() const { return 0; }
    template <class T>
    operator T*() const {
        return nullptr;
    }
};
Failed fail(DWORD code);

/// The output protocol of the CryptoAPI: size only for a null buffer, ERROR_MORE_DATA for a short one, else the octets.
BOOL give(const std::string& value, void* buffer, DWORD* size);

/// Where the build put a service library:
///   full          every entry point under its own name
///   vipnet        the same, as a second service
///   suffixed      every entry point with "A" behind its name
///   empty         none
///   first, second the entry points dealt between two libraries; CryptGenRandom is in both
///   sign_a        only CryptSignHashA
///   acquire_w     only CryptAcquireContextW
///   acquire_a     only CryptAcquireContextA
///   both_spellings only CryptGenRandom and CryptGenRandomA; the second fails with 0xA
///   unresolved    only CryptGenRandom, beside code that calls a function which is nowhere
std::string libraryPath(const std::string& name);

} // namespace service_double
