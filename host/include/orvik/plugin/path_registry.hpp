#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/filesystem/path.hpp>

namespace orvik::plugin {

/// Where the shared libraries of each CryptoAPI service lie.
///
/// Each function answers, in this order: what `setService`, or else the environment variable KLUNORTREDI_SERVICE, says;
/// the slot's environment variable (KLUNORTREDI_VIPNET, KLUNORTREDI_KERNEL32, KLUNORTREDI_CRYPTOPRO,
/// KLUNORTREDI_CRYPTOAPI, KLUNORTREDI_CRYPTOAPI2; set but empty means "none"); the configuration file
/// $XDG_CONFIG_HOME/klunortredi/config (lines "vipnet=PATH", "kernel32=", "cryptopro=", "cryptoapi=", "cryptoapi2=";
/// "#" begins a comment); the vendor's install place; for CryptoPro's slot at last the embedded service. An empty path,
/// or one that does not exist, is a service that is not installed.
class ORVIK_EXPORT PathRegistry {
public:
    static boost::filesystem::path vipNetResourceFile();
    static boost::filesystem::path kernel32ResourceFile();
    static boost::filesystem::path cryptoProResourceFile();
    static boost::filesystem::path cryptoApiResourceFile();
    static boost::filesystem::path cryptoApi2ResourceFile();

    /// One library for the whole process, in CryptoPro's slot; every other slot is empty then. Call it before the first
    /// use of the plug-in. An empty path takes the choice back.
    static void setService(const boost::filesystem::path& library);
};

} // namespace orvik::plugin
