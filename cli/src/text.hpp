#pragma once

/// How names, numbers and times are written for people and for programs.

#include "orvik/plugin/crypto/name_info.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli::text {

/// The OID of a name's attribute: of a short name in any case (CN, O, INN ...), or itself when it is an OID; empty for
/// anything else.
std::string oidOfAttribute(const std::string& name);

/// "CN=..., O=...": known attribute types by their short names, others by OID.
std::string name(const orvik::plugin::crypto::NameInfo& info);
/// RFC 3339 UTC, "2026-11-20T12:00:00Z"; empty for no time.
std::string time(const boost::posix_time::ptime& time);
/// Lower-case hexadecimal of octets in reverse order: CryptoAPI keeps integers least significant octet first.
std::string serial(const std::string& littleEndian);
/// Names of the key-usage bits (RFC 5280, 4.2.1.3).
std::vector<std::string> keyUsage(unsigned bits);
/// Octets of a key-usage list "digitalSignature,nonRepudiation"; Failure (usage) for an unknown name.
unsigned keyUsageBits(const std::string& list);
/// Letters of every script lowered; other characters kept.
std::string lower(std::string_view text);
/// Throws Failure (usage), naming the option, when `text` is no dotted object identifier.
void checkOid(const std::string& option, const std::string& text);
/// A wide text of the library as UTF-8.
std::string utf8(const std::wstring& wide);
std::wstring wide(const std::string& utf8);
/// "a, b, c"
std::string joined(const std::vector<std::string>& parts);

} // namespace klunortredi::cli::text
