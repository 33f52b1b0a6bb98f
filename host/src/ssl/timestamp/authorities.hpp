#pragma once

#include <functional>
#include <string>

namespace orvik::plugin::ssl::internal {

/// One exchange with the authority at `address`, with a nonce of its own; returns what was made of the response.
using Exchange = std::function<std::string(const std::string& address, const std::string& nonce)>;

/// The result of the first address (they are separated by blanks) whose exchange succeeds, tried in their order. The
/// nonce is new and random for each (crypto::cadest::TimestampTools says its form).
///
/// An authority that cannot be reached, that refuses, or whose response is not acceptable (an ApplicationException) is
/// passed over. When all are, throws ApplicationException with the last one's code and what each of them said;
/// emptyInput when there is no address. Everything else that `exchange` throws ends the search.
std::string fromFirstAuthority(const std::string& addresses, const Exchange& exchange);

} // namespace orvik::plugin::ssl::internal
