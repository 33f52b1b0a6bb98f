#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvik::plugin::crypto {

class IProvider;

/// What a certificate request is to contain. Texts are UTF-8.
struct CsrCreatorParams {
    boost::shared_ptr<IProvider> provider; ///< makes the key
    std::wstring container;                ///< name of the container
    std::string subject;                   ///< "OID=VALUE;OID=VALUE"
    std::string paramSet;                  ///< OID of the key's parameter set; empty: the provider's usual one
    std::uint16_t keyUsage = 0;            ///< first octet of the key-usage bits low, second octet high; 0: none
    std::vector<std::string> enhancedKeyUsage;
    std::vector<std::string> certificatePolicies;
    std::vector<std::string> dnsNames;
    std::string userPrincipalName;                ///< empty: none
    std::string subjectSignTool;                  ///< empty: none
    boost::optional<unsigned> identificationKind; ///< 1.2.643.100.114
    boost::optional<unsigned> privateKeyDays;     ///< validity period of the private key from now
    bool exportable = false;
    std::vector<std::string> emailNames; ///< e-mail addresses for the subject alternative name (RFC 5280, 4.2.1.6)
    bool machineInfo = true;             ///< the request names the machine, its user and its system
    bool existingKey = false;            ///< the container is there, and the request is for its exchange key
    std::string encodedSubject;          ///< DER of the subject's name; empty: `subject` says it
    /// OID and DER of extensions' values, for those of the extensions above that nothing else asks for.
    std::vector<std::pair<std::string, std::string>> keptExtensions;
};

/// Makes a key pair, or takes one that is there, and makes a certificate request for it (RFC 2986).
class ORVIK_EXPORT ICsrCreator {
public:
    struct Result {
        std::string request;       ///< Base64 of the DER
        std::string containerPath; ///< UTF-8
        std::string containerName; ///< UTF-8
    };

    virtual boost::shared_ptr<Result> create(const boost::shared_ptr<CsrCreatorParams>& params,
                                             const std::string& pin) const = 0;

    virtual ~ICsrCreator();
};

} // namespace orvik::plugin::crypto
