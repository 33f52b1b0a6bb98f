#pragma once

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <boost/utility/string_view.hpp>

namespace orvik::plugin::wincrypt {

/// In what form a certificate comes: text (armoured, also with other text before the armour, or bare Base64), DER, or
/// octets that do not look like DER.
crypto::ICertificate::Format certificateFormat(boost::string_view data);

} // namespace orvik::plugin::wincrypt
