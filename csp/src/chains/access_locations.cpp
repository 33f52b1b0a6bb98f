#include "chains/access_locations.hpp"

#include "x509/x509_der.hpp"

#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace klunortredi::csp {

namespace {

using AccessDescriptions = std::unique_ptr<AUTHORITY_INFO_ACCESS, ossl::Deleter<AUTHORITY_INFO_ACCESS_free>>;
using DistributionPoints = std::unique_ptr<CRL_DIST_POINTS, ossl::Deleter<CRL_DIST_POINTS_free>>;

constexpr std::size_t longestLocation = 2048; ///< octets; longer ones are not in use

bool isHttp(std::string_view location) {
    constexpr std::array<std::string_view, 2> schemes{"http://", "https://"};
    return std::ranges::any_of(schemes, [&](std::string_view scheme) {
        return location.size() > scheme.size() &&
               std::ranges::equal(scheme, location.substr(0, scheme.size()),
                                  [](char wanted, unsigned char c) { return wanted == std::tolower(c); });
    });
}

void add(const GENERAL_NAME* name, std::vector<std::string>& list) {
    if (name->type != GEN_URI || list.size() == mostLocations) {
        return;
    }
    const ByteView octets = ossl::octets(name->d.uniformResourceIdentifier);
    std::string location(octets.begin(), octets.end());
    if (location.size() <= longestLocation && isHttp(location) && std::ranges::find(list, location) == list.end()) {
        list.push_back(std::move(location));
    }
}

std::vector<std::string> accessLocations(X509* certificate, int method) {
    const AccessDescriptions descriptions(
        static_cast<AUTHORITY_INFO_ACCESS*>(X509_get_ext_d2i(certificate, NID_info_access, nullptr, nullptr)));
    std::vector<std::string> list;
    for (int i = 0; i < sk_ACCESS_DESCRIPTION_num(descriptions.get()); ++i) {
        const ACCESS_DESCRIPTION* const description = sk_ACCESS_DESCRIPTION_value(descriptions.get(), i);
        if (OBJ_obj2nid(description->method) == method) {
            add(description->location, list);
        }
    }
    return list;
}

void addPoints(X509* certificate, int extension, std::vector<std::vector<std::string>>& list) {
    const DistributionPoints points(
        static_cast<CRL_DIST_POINTS*>(X509_get_ext_d2i(certificate, extension, nullptr, nullptr)));
    const int count = std::min(sk_DIST_POINT_num(points.get()), static_cast<int>(mostLocations));
    for (int i = 0; i < count; ++i) {
        std::vector<std::string> locations;
        const DIST_POINT_NAME* const point = sk_DIST_POINT_value(points.get(), i)->distpoint;
        const GENERAL_NAMES* const names = point != nullptr && point->type == 0 ? point->name.fullname : nullptr;
        for (int j = 0; j < sk_GENERAL_NAME_num(names); ++j) {
            add(sk_GENERAL_NAME_value(names, j), locations);
        }
        list.push_back(std::move(locations));
    }
}

} // namespace

std::vector<std::string> issuerLocations(X509* certificate) {
    return accessLocations(certificate, NID_ad_ca_issuers);
}

std::vector<std::string> ocspLocations(X509* certificate) {
    return accessLocations(certificate, NID_ad_OCSP);
}

std::vector<std::vector<std::string>> crlLocations(X509* certificate) {
    std::vector<std::vector<std::string>> list;
    addPoints(certificate, NID_crl_distribution_points, list);
    addPoints(certificate, NID_freshest_crl, list);
    return list;
}

} // namespace klunortredi::csp
