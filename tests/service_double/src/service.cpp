// The script and the record.

#include "model.hpp"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace service_double {

std::recursive_mutex& stateMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

State& state() {
    static State instance;
    return instance;
}

Service& service() {
    static Service instance;
    return instance;
}

void Service::reset() {
    const Lock lock(stateMutex());
    for (void* block : state().memory) {
        ::operator delete(block);
    }
    for (const auto* chain : state().chains) {
        delete chain;
    }
    state() = State();
    *this = Service();
}

std::vector<Call> Service::calls() const {
    const Lock lock(stateMutex());
    return state().calls;
}

std::vector<std::string> Service::trace() const {
    std::vector<std::string> texts;
    for (const auto& call : calls()) {
        texts.push_back(call.text);
    }
    return texts;
}

std::size_t Service::count(const std::string& function) const {
    const auto all = calls();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [&](const Call& call) { return call.function == function; }));
}

void Service::clearCalls() {
    const Lock lock(stateMutex());
    state().calls.clear();
}

void Service::failCall(std::size_t n, DWORD code) {
    const Lock lock(stateMutex());
    state().callsUntilFailure = n;
    state().failureCode = code;
    state().failedCall.clear();
    state().failedFunction.clear();
}

std::string Service::failedCall() const {
    const Lock lock(stateMutex());
    return state().failedCall;
}

std::string Service::failedFunction() const {
    const Lock lock(stateMutex());
    return state().failedFunction;
}

void Service::failFunction(const std::string& function, DWORD code) {
    const Lock lock(stateMutex());
    if (code == 0) {
        state().failingFunctions.erase(function);
    } else {
        state().failingFunctions[function] = code;
    }
}

namespace {

template <class Object>
void listHeld(const Table<Object>& table, std::string& text) {
    for (const auto& [handle, object] : table.objects()) {
        std::size_t held = 1;
        if constexpr (requires { object.ownedByService; }) {
            held = object.references - object.ownedByService;
        }
        if (held != 0) {
            text += table.name(handle) + " is held " + std::to_string(held) + " time(s)\n";
        }
    }
}

} // namespace

std::string Service::imbalance() const {
    const Lock lock(stateMutex());
    std::string text;
    listHeld(state().contexts, text);
    listHeld(state().keys, text);
    listHeld(state().hashes, text);
    listHeld(state().messages, text);
    listHeld(state().stores, text);
    for (const auto& [context, certificate] : state().certificates) {
        if (certificate->references != 0) {
            text += "certificate" + std::to_string(certificate->number) + " is held " +
                    std::to_string(certificate->references) + " time(s)\n";
        }
    }
    if (!state().chains.empty()) {
        text += std::to_string(state().chains.size()) + " chain(s) held\n";
    }
    if (!state().memory.empty()) {
        text += std::to_string(state().memory.size()) + " block(s) of memory held\n";
    }
    for (const auto& line : state().misuses) {
        text += line + "\n";
    }
    return text;
}

PCCERT_CONTEXT Service::makeCertificate(const std::string& der) {
    const Lock lock(stateMutex());
    const auto certificate = parseCertificate(der);
    if (!certificate) {
        throw std::invalid_argument("not a certificate");
    }
    return hold(certificate);
}

BOOL misuse(const std::string& text, DWORD code) {
    state().misuses.push_back(text);
    return fail(code);
}

std::string libraryPath(const std::string& name) {
    return std::string(SERVICE_DOUBLE_DIR) + "/" + name + ".so";
}

} // namespace service_double
