#pragma once

/// FILETIMEs (100-nanosecond intervals since 1601-01-01 UTC) and what they are made from.

#include "asn1/der.hpp"
#include "capi/types.h"
#include "core/bytes.hpp"

namespace klunortredi::csp {

/// Time as X.509 writes it (RFC 5280, 4.1.2.5): UTCTime from 1950 to 2049, else GeneralizedTime; whole seconds, the
/// fraction is dropped. CRYPT_E_BAD_ENCODE after the year 9999.
Bytes encodeChoiceOfTime(const FILETIME& time);
/// GeneralizedTime in whole seconds.
Bytes encodeGeneralizedTime(const FILETIME& time);
/// GeneralizedTime with the fraction, to 100 nanoseconds, without trailing zeros (RFC 3161, 2.4.2).
Bytes encodeGeneralizedTimeWithFraction(const FILETIME& time);

/// A UTCTime or GeneralizedTime of the form that DER wants: with seconds, in UTC ("Z"). The content of an implicitly
/// tagged one is decoded by `decodeGeneralizedTime`. CRYPT_E_ASN1_BADTAG for another type, CRYPT_E_ASN1_CORRUPT for a
/// moment that does not exist, CRYPT_E_ASN1_LARGE for one before 1601, which a FILETIME cannot tell.
FILETIME decodeChoiceOfTime(const der::Element& element);
/// Fractions are taken to 100 nanoseconds, what is finer is dropped.
FILETIME decodeGeneralizedTime(ByteView content);

/// The current moment, UTC, to the millisecond.
SYSTEMTIME systemTimeNow();
/// The weekday is ignored. ERROR_INVALID_PARAMETER for a moment that does not exist or is out of the years 1601 to
/// 30827.
FILETIME fileTimeOf(const SYSTEMTIME& time);

} // namespace klunortredi::csp
