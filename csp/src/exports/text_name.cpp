#include "exports/export.hpp"
#include "objects/name_text.hpp"
#include "x509/blob.hpp"

#include <algorithm>

namespace klunortredi::csp::exports {

namespace {

std::wstring textOf(DWORD encodingType, const CERT_NAME_BLOB* name, DWORD type) {
    if (name == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if ((encodingType & capi::X509_AND_PKCS_7) == 0) {
        fail(capi::ERROR_FILE_NOT_FOUND);
    }
    return nameToText(blobView(*name), type);
}

} // namespace

/// The function has no failure value: a name that has no text becomes the empty one, with the last error set.
DWORD CertNameToStrW(DWORD dwCertEncodingType, CERT_NAME_BLOB* pName, DWORD dwStrType, wchar_t* psz, DWORD csz) {
    std::wstring text;
    guarded([&] { text = textOf(dwCertEncodingType, pName, dwStrType); });
    if (psz == nullptr || csz == 0) {
        return static_cast<DWORD>(text.size() + 1);
    }
    // What does not fit is cut off; the zero always stands.
    const std::size_t written = std::min<std::size_t>(text.size(), csz - 1);
    std::copy_n(text.begin(), written, psz);
    psz[written] = L'\0';
    return static_cast<DWORD>(written + 1);
}

} // namespace klunortredi::csp::exports
