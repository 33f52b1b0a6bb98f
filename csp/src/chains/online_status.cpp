#include "chains/online_status.hpp"

#include "chains/access_locations.hpp"

namespace klunortredi::csp {

namespace {

std::optional<OcspAnswer> askServers(X509* certificate, X509* issuer, const PathCrls& crls, std::time_t time,
                                     Retrieval& retrieval) {
    const std::vector<std::string> locations = ocspLocations(certificate);
    if (locations.empty()) {
        return std::nullopt;
    }
    const OcspRequest request(certificate, issuer);
    for (const std::string& location : locations) {
        const auto answer = retrieval.status(location, request, crls.lists);
        if (answer && statusAt(*answer, time) != OcspAnswer::Status::Unknown) {
            return answer;
        }
    }
    return std::nullopt;
}

/// The CRL of a distribution point, from the first address that has it.
void takeCrl(const std::vector<std::string>& locations, X509* issuer, Retrieval& retrieval, std::vector<Bytes>& crls) {
    for (const std::string& location : locations) {
        if (auto crl = retrieval.crl(location, issuer)) {
            crls.push_back(std::move(*crl));
            return;
        }
    }
}

} // namespace

RetrievedStatus retrieveStatus(const Path& path, const PathCrls& crls, const std::set<std::size_t>& missing,
                               std::time_t time, Retrieval& retrieval) {
    RetrievedStatus retrieved;
    for (const std::size_t index : missing) {
        X509* const certificate = path.certificates[index]->x509.get();
        X509* const issuer = path.certificates.at(index + 1)->x509.get();
        if (const auto answer = askServers(certificate, issuer, crls, time, retrieval)) {
            retrieved.answers.emplace(index, *answer);
            continue;
        }
        for (const std::vector<std::string>& point : crlLocations(certificate)) {
            takeCrl(point, issuer, retrieval, retrieved.crls);
        }
    }
    return retrieved;
}

} // namespace klunortredi::csp
