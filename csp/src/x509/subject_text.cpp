#include "x509/subject_text.hpp"

#include "text/unicode.hpp"
#include "x509/blob.hpp"
#include "x509/x509_der.hpp"

#include <cwctype>
#include <locale.h>

namespace klunortredi::csp {

std::wstring subjectText(const Certificate& certificate) {
    const auto name = ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, blobView(certificate.info().Subject));
    const ossl::Bio text(BIO_new(BIO_s_mem()));
    if (!name || !text) {
        return {};
    }
    constexpr unsigned long valuesOnly = XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_FN_NONE | ASN1_STRFLGS_UTF8_CONVERT;
    const ossl::ErrorMark mark;
    X509_NAME_print_ex(text.get(), name.get(), 0, valuesOnly);
    const char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return wideFromUtf8({data, static_cast<std::size_t>(size)}).value_or(std::wstring{});
}

std::wstring foldCase(std::wstring text) {
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    for (wchar_t& character : text) {
        character = static_cast<wchar_t>(unicode == nullptr ? std::towlower(static_cast<wint_t>(character))
                                                            : towlower_l(static_cast<wint_t>(character), unicode));
    }
    return text;
}

} // namespace klunortredi::csp
