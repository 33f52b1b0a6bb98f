// How calls come in: recording, and failing on demand.

#include "dispatch.hpp"
#include "model.hpp"

namespace service_double {

namespace {

thread_local std::string callingLibrary;
thread_local DWORD injectedCode;

/// Calls that have no way to fail, and the traffic of the last error, which is no news of its own.
bool canFail(Entry entry) {
    switch (entry) {
    case Entry::CertFreeCertificateChain:
    case Entry::GetSystemTime:
    case Entry::LocalFree:
    case Entry::GetLastError:
    case Entry::SetLastError:
        return false;
    default:
        return true;
    }
}

bool isRecorded(Entry entry) {
    return entry != Entry::GetLastError && entry != Entry::SetLastError;
}

/// The code that this call is to fail with; 0 when it is not.
DWORD dueFailure(Entry entry, const Call& call) {
    if (!canFail(entry)) {
        return 0;
    }
    auto& now = state();
    if (now.callsUntilFailure != 0 && --now.callsUntilFailure == 0) {
        now.failedCall = call.text;
        now.failedFunction = call.function;
        return now.failureCode;
    }
    const auto failing = now.failingFunctions.find(call.function);
    return failing == now.failingFunctions.end() ? 0 : failing->second;
}

} // namespace

Verdict admit(const char* library, Entry entry, const char* function, const std::string& arguments) {
    callingLibrary = library;
    if (!isRecorded(entry)) {
        return Verdict::answer;
    }
    const Lock lock(stateMutex());
    state().calls.push_back({library, function, std::string(function) + "(" + arguments + ")"});
    injectedCode = dueFailure(entry, state().calls.back());
    return injectedCode == 0 ? Verdict::answer : Verdict::fail;
}

const std::string& currentLibrary() {
    return callingLibrary;
}

void setInjectedError() {
    fail(injectedCode);
}

void consume(Entry entry, PCCERT_CONTEXT context) {
    const bool frees = entry == Entry::CertEnumCertificatesInStore || entry == Entry::CertFindCertificateInStore ||
                       entry == Entry::CertDeleteCertificateFromStore;
    if (frees && context != nullptr) {
        const Lock lock(stateMutex());
        letGo(context, "a failing call");
    }
}

} // namespace service_double
