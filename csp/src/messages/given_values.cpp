#include "messages/given_values.hpp"

#include "asn1/der.hpp"
#include "x509/blob.hpp"

namespace klunortredi::csp {

std::vector<Attribute> givenAttributes(CRYPT_ATTRIBUTE* first, DWORD count) {
    std::vector<Attribute> decoded;
    for (const CRYPT_ATTRIBUTE& attribute : givenItems(first, count)) {
        if (attribute.pszObjId == nullptr || attribute.cValue == 0) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        Attribute& added = decoded.emplace_back(attribute.pszObjId);
        for (const CRYPT_ATTR_BLOB& value : givenItems(attribute.rgValue, attribute.cValue)) {
            const ByteView octets = blobView(value);
            der::readOnly(octets); // one DER value, or the message could not be read again
            added.values.emplace_back(octets.begin(), octets.end());
        }
    }
    return decoded;
}

Bytes givenIssuerAndSerial(const CRYPTOAPI_BLOB& issuer, const CRYPTOAPI_BLOB& serialNumber) {
    const ByteView name = blobView(issuer);
    const ByteView serial = blobView(serialNumber);
    if (serial.empty() || name.empty()) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return der::sequence({name, der::integer(Bytes(serial.rbegin(), serial.rend()))});
}

} // namespace klunortredi::csp
