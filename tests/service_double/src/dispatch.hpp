#pragma once

/// The way of a call from a thin library to its answer.

#include "service_double/service_double.hpp"

#include <array>
#include <string>
#include <type_traits>

namespace service_double {

enum class Entry {
#define SERVICE_DOUBLE_ENTRY(reach, qualifier, result, member, ...) member,
    KLUNORTREDI_ENTRY_POINTS(SERVICE_DOUBLE_ENTRY)
#undef SERVICE_DOUBLE_ENTRY
};

/// One argument as text, by its type and by its name in the list of entry points.
std::string describe(const std::string& name, DWORD value);
std::string describe(const std::string& name, BOOL value);
std::string describe(const std::string& name, unsigned long handle);
std::string describe(const std::string& name, unsigned long* handle);
std::string describe(const std::string& name, DWORD* size);
std::string describe(const std::string& name, const char* text);
std::string describe(const std::string& name, char* buffer);
std::string describe(const std::string& name, const wchar_t* text);
std::string describe(const std::string& name, wchar_t* buffer);
std::string describe(const std::string& name, PCCERT_CONTEXT context);
std::string describe(const std::string& name, const void* pointer);

/// The names in a parameter list as text: "(DWORD dwFlags, void* hMem)" gives dwFlags, hMem.
std::vector<std::string> parameterNames(const std::string& list);

/// What is done with a recorded call.
enum class Verdict { answer, fail };

/// Records the call and says what becomes of it.
Verdict admit(const char* library, Entry entry, const char* function, const std::string& arguments);

/// Which library the calling thread's present call came through.
const std::string& currentLibrary();

/// Whether a failing call of this entry point still does its work: a release releases, whatever it returns, and an
/// enumeration frees the context that it is given.
constexpr bool worksThoughFailing(Entry entry) {
    switch (entry) {
    case Entry::CryptReleaseContext:
    case Entry::CryptDestroyKey:
    case Entry::CryptDestroyHash:
    case Entry::CryptMsgClose:
    case Entry::CertCloseStore:
    case Entry::CertFreeCertificateContext:
        return true;
    default:
        return false;
    }
}

/// The contexts that a failing call still frees.
void consume(Entry entry, PCCERT_CONTEXT context);
template <class T>
void consume(Entry /*entry*/, const T& /*argument*/) {}

template <class Signature>
struct Dispatch;

template <class R, class... A>
struct Dispatch<R(A...)> {
    const char* library;
    Entry entry;
    const char* function;
    const char* parameters;
    std::function<R(A...)> Answers::*answer;
    R (*standard)(A...);

    R operator()(A... arguments) const {
        if (admit(library, entry, function, text(arguments...)) == Verdict::fail) {
            if (worksThoughFailing(entry)) {
                standard(arguments...);
            }
            (consume(entry, arguments), ...);
            setFailure();
            if constexpr (!std::is_void_v<R>) {
                return R{};
            }
        } else if (const auto& scripted = service().on.*answer) {
            return scripted(arguments...);
        } else {
            return standard(arguments...);
        }
    }

private:
    static void setFailure();
    std::string text(A... arguments) const {
        const auto names = parameterNames(parameters);
        std::string result;
        std::size_t index = 0;
        ((result += (index == 0 ? "" : ", ") + describe(names.at(index), arguments), ++index), ...);
        return result;
    }
};

/// Sets the last error to the code that the present call fails with.
void setInjectedError();

template <class R, class... A>
void Dispatch<R(A...)>::setFailure() {
    setInjectedError();
}

} // namespace service_double
