#pragma once

#include "provider_record.hpp"

#include <boost/utility/string_view.hpp>

namespace orvik::plugin::wincrypt {

/// Whether the provider of that name takes PINs from its callers. Signal-COM's ask for theirs themselves.
inline bool takesPin(boost::wstring_view providerName) {
    const auto record = providerRecord(providerName);
    return !record || record->kind != crypto::IProvider::Kind::signalCom;
}

} // namespace orvik::plugin::wincrypt
