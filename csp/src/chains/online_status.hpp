#pragma once

/// The status of a path's certificates that is not known from what is at hand, from the network.

#include "chains/path_judgement.hpp"
#include "chains/retrieval.hpp"

#include <map>
#include <set>

namespace klunortredi::csp {

/// Answers by the index of the element.
using OcspAnswers = std::map<std::size_t, OcspAnswer>;

struct RetrievedStatus {
    OcspAnswers answers;     ///< that prove a status at the time asked about
    std::vector<Bytes> crls; ///< DER, of issuers and signatures not looked at yet
};

/// Asks for each of the elements `missing`, all of which have their issuer in the path: first the servers that it
/// names, then, where none says, for the CRLs of its distribution points.
RetrievedStatus retrieveStatus(const Path& path, const PathCrls& crls, const std::set<std::size_t>& missing,
                               std::time_t time, Retrieval& retrieval);

} // namespace klunortredi::csp
