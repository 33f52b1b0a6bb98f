#pragma once

#include "orvik/plugin/crypto/i_csr_creator.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <string>

namespace orvik::plugin::wincrypt {

/// Makes a key pair in a new container of the service, or takes that of a container, and a PKCS#10 request (RFC 2986)
/// signed with it.
class ORVIK_EXPORT CsrCreator : public crypto::ICsrCreator {
public:
    /// `pin`, when not empty, becomes the container's PIN, or unlocks the key that is there. Throws CryptoException
    /// parameterSetUnsupported or algorithmUnsupported; ApplicationException cancelled; SystemException when the
    /// service refuses. The container is complete when this returns; when it throws, no new container is left behind.
    boost::shared_ptr<Result> create(const boost::shared_ptr<crypto::CsrCreatorParams>& params,
                                     const std::string& pin) const override;

    ~CsrCreator() override;
};

} // namespace orvik::plugin::wincrypt
