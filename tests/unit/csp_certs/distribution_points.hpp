#pragma once

/// Distribution points (RFC 5280, 4.2.1.13) with what OpenSSL's text form of the extension cannot say.

#include "pki.hpp"

#include <openssl/x509v3.h>

#include <functional>
#include <string>
#include <vector>

namespace pki {

/// Gives a certificate one point with those addresses; `crlIssuer`, when not null, is named as the list's issuer and
/// must outlive the function. For Wanted::change.
inline std::function<void(X509*)> onePoint(std::vector<std::string> addresses, const Entity* crlIssuer = nullptr) {
    return [=](X509* certificate) {
        CRL_DIST_POINTS* const list = CRL_DIST_POINTS_new();
        DIST_POINT* const point = DIST_POINT_new();
        if (!addresses.empty()) {
            point->distpoint = DIST_POINT_NAME_new();
            point->distpoint->type = 0;
            point->distpoint->name.fullname = GENERAL_NAMES_new();
        }
        for (const std::string& address : addresses) {
            GENERAL_NAME* const name = GENERAL_NAME_new();
            ASN1_IA5STRING* const url = ASN1_IA5STRING_new();
            ASN1_STRING_set(url, address.data(), static_cast<int>(address.size()));
            GENERAL_NAME_set0_value(name, GEN_URI, url);
            sk_GENERAL_NAME_push(point->distpoint->name.fullname, name);
        }
        if (crlIssuer != nullptr) {
            point->CRLissuer = GENERAL_NAMES_new();
            GENERAL_NAME* const name = GENERAL_NAME_new();
            name->type = GEN_DIRNAME;
            name->d.directoryName = X509_NAME_dup(X509_get_subject_name(crlIssuer->certificate.get()));
            sk_GENERAL_NAME_push(point->CRLissuer, name);
        }
        sk_DIST_POINT_push(list, point);
        X509_add1_ext_i2d(certificate, NID_crl_distribution_points, list, 0, 0);
        CRL_DIST_POINTS_free(list);
    };
}

} // namespace pki
