#include "core/output.hpp"
#include "exports/argument.hpp"
#include "exports/export.hpp"
#include "keys/provider_params.hpp"

#include <string_view>

namespace klunortredi::csp::exports {

namespace {

std::wstring_view textOrNothing(const wchar_t* text) {
    return text == nullptr ? std::wstring_view{} : std::wstring_view(text);
}

} // namespace

BOOL CryptAcquireContextW(unsigned long* phProv, const wchar_t* szContainer, const wchar_t* szProvider,
                          DWORD dwProvType, DWORD dwFlags) {
    return guarded([&] {
        require(phProv != nullptr);
        *phProv = acquireContext(textOrNothing(szContainer), textOrNothing(szProvider), dwProvType, dwFlags);
    });
}

BOOL CryptReleaseContext(unsigned long hProv, DWORD dwFlags) {
    return guarded([&] {
        providerContext(hProv);
        requireNoFlags(dwFlags);
        releaseContext(hProv);
    });
}

BOOL CryptContextAddRef(unsigned long hProv, DWORD* pdwReserved, DWORD dwFlags) {
    return guarded([&] {
        require(pdwReserved == nullptr);
        providerContext(hProv);
        requireNoFlags(dwFlags);
        addContextReference(hProv);
    });
}

BOOL CryptEnumProviders(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType, char* szProvName,
                        DWORD* pcbProvName) {
    return guarded([&] {
        require(pdwReserved == nullptr && pdwProvType != nullptr && pcbProvName != nullptr);
        requireNoFlags(dwFlags);
        if (dwIndex >= providers.size()) {
            fail(capi::ERROR_NO_MORE_ITEMS);
        }
        *pdwProvType = providers.at(dwIndex).type;
        giveText(providers.at(dwIndex).name, szProvName, pcbProvName);
    });
}

BOOL CryptGetProvParam(unsigned long hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    return guarded([&] {
        require(pdwDataLen != nullptr);
        getProviderParam(*providerContext(hProv), dwParam, pbData, pdwDataLen, dwFlags);
    });
}

BOOL CryptSetProvParam(unsigned long hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
    return guarded([&] {
        require(pbData != nullptr);
        setProviderParam(*providerContext(hProv), dwParam, reinterpret_cast<const char*>(pbData), dwFlags);
    });
}

} // namespace klunortredi::csp::exports
