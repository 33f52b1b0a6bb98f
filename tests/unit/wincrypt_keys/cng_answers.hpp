#pragma once

/// This platform has no CNG providers, every provider of the framework's table has the algorithms of its parameter
/// sets, a key object that is not used yet cannot fail, and what the system says of itself is UTF-8. So this program
/// answers for the libraries itself: what it defines comes before what they define.

#include <exception>
#include <string>
#include <vector>

namespace wincrypt_keys {

inline bool providersAreCng = false;       ///< by name: such providers are not opened
inline bool providerObjectsAreCng = false; ///< by the provider itself
inline bool handlesAreCng = false;
inline std::vector<std::string> algorithms; ///< of every provider
inline std::exception_ptr keyFailure;       ///< thrown by the constructor of each private key
inline std::string systemName;              ///< of VersionRegistry
inline std::string machineName;             ///< of each UserAgent
inline int userAgents = 0;                  ///< made so far

/// Back to what the libraries would answer for a provider with the algorithms of GOST R 34.10-2012 256 keys.
void forgetAnswers();

} // namespace wincrypt_keys
