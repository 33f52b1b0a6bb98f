#include "chains/crl_order.hpp"

#include "x509/x509_der.hpp"

#include <algorithm>
#include <ctime>

namespace klunortredi::csp {

namespace {

using Number = std::unique_ptr<ASN1_INTEGER, ossl::Deleter<ASN1_INTEGER_free>>;

Number numberOf(const X509_CRL* crl) {
    return Number(static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(crl, NID_crl_number, nullptr, nullptr)));
}

std::time_t timeOf(const X509_CRL* crl) {
    std::tm parts{};
    return ASN1_TIME_to_tm(X509_CRL_get0_lastUpdate(crl), &parts) == 0 ? 0 : timegm(&parts);
}

Bytes encodingOf(const X509_CRL* crl) {
    return ossl::toDer(i2d_X509_CRL, const_cast<X509_CRL*>(crl)); // NOLINT: the C function writes nothing
}

} // namespace

std::partial_ordering compareCrlNumbers(const X509_CRL* left, const X509_CRL* right) {
    const Number a = numberOf(left);
    const Number b = numberOf(right);
    return a && b ? ASN1_INTEGER_cmp(a.get(), b.get()) <=> 0 : std::partial_ordering::unordered;
}

bool isNewerCrl(const std::shared_ptr<X509_CRL>& left, const std::shared_ptr<X509_CRL>& right) {
    const std::time_t a = timeOf(left.get());
    const std::time_t b = timeOf(right.get());
    if (a != b) {
        return a > b;
    }
    const std::partial_ordering numbers = compareCrlNumbers(left.get(), right.get());
    if (numbers == std::partial_ordering::unordered) {
        const bool leftHas = numberOf(left.get()) != nullptr;
        if (leftHas != (numberOf(right.get()) != nullptr)) {
            return leftHas;
        }
    } else if (numbers != std::partial_ordering::equivalent) {
        return numbers == std::partial_ordering::greater;
    }
    return std::ranges::lexicographical_compare(encodingOf(left.get()), encodingOf(right.get()));
}

} // namespace klunortredi::csp
