#pragma once

/// Revocation information in the CryptoAPI's structures.

#include "capi/types.h"
#include "chains/element_revocation.hpp"
#include "core/bytes.hpp"

#include <deque>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace klunortredi::csp {

/// Owns what the structures lead to; addresses are stable for its life.
///
/// The entries of a CRL are not listed in its CRL_INFO (cCRLEntry is 0): lists have millions of them, and the one that
/// counts is CERT_REVOCATION_CRL_INFO.pCrlEntry. The whole CRL stands in pbCrlEncoded.
class RevocationLayout {
public:
    CERT_REVOCATION_INFO* add(const ElementRevocation& revocation);

private:
    PCCRL_CONTEXT context(const std::shared_ptr<X509_CRL>& crl);
    CRYPTOAPI_BLOB blob(Bytes octets);
    char* oid(const ASN1_OBJECT* object);
    CRL_ENTRY* entry(const X509_REVOKED* revoked);
    CRL_ENTRY* entry(const OcspAnswer& answer);
    CERT_EXTENSION* extensions(const STACK_OF(X509_EXTENSION) * list, DWORD& count);

    std::map<const X509_CRL*, PCCRL_CONTEXT> known_;
    std::deque<CRL_CONTEXT> contexts_;
    std::deque<CRL_INFO> infos_;
    std::deque<CRL_ENTRY> entries_;
    std::deque<CERT_REVOCATION_CRL_INFO> crlInfos_;
    std::deque<CERT_REVOCATION_INFO> revocations_;
    std::list<std::vector<CERT_EXTENSION>> extensions_;
    std::deque<Bytes> octets_;
    std::deque<std::string> texts_;
};

} // namespace klunortredi::csp
