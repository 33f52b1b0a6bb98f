#include "ber_reader.hpp"

#include "capi/constants.hpp"
#include "capi/types.h"
#include "crypto/wincrypt/exceptions.hpp"

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// Values of indefinite length inside one another: messages in use have under ten.
constexpr unsigned deepest = 64;

/// From this on contents are sought over; below it reading on is cheaper.
constexpr std::uint64_t worthSeeking = 64U << 10U;

constexpr unsigned char longTag = 0x1F;     // low bits of a tag of several octets
constexpr unsigned char constructed = 0x20; // bit of a tag
constexpr unsigned char longLength = 0x80;  // bit of the first octet of a length
constexpr unsigned char mostLengthOctets = 8;

[[noreturn]] void refuse(DWORD code) {
    raise(crypto::exception::SystemException(code), {"tools_signers", "BerReader"});
}

} // namespace
} // namespace internal

unsigned char BerReader::octet() {
    const auto got = in_.get();
    if (got == std::istream::traits_type::eof()) {
        internal::refuse(capi::CRYPT_E_ASN1_EOD);
    }
    ++position_;
    const auto value = static_cast<unsigned char>(got);
    if (copy_ != nullptr) {
        if (copy_->size() == limit_) {
            internal::refuse(capi::CRYPT_E_ASN1_LARGE);
        }
        copy_->push_back(static_cast<char>(value));
    }
    return value;
}

void BerReader::pass(std::uint64_t size) {
    if (copy_ != nullptr) {
        if (size > limit_ - copy_->size()) {
            internal::refuse(capi::CRYPT_E_ASN1_LARGE);
        }
        const auto at = copy_->size();
        copy_->resize(at + static_cast<std::size_t>(size));
        in_.read(copy_->data() + at, static_cast<std::streamsize>(size));
    } else if (size >= internal::worthSeeking) {
        in_.seekg(static_cast<std::streamoff>(size), std::ios::cur);
    } else {
        in_.ignore(static_cast<std::streamsize>(size));
    }
    const bool read = copy_ != nullptr || size < internal::worthSeeking;
    if (!in_ || (read && static_cast<std::uint64_t>(in_.gcount()) != size)) {
        internal::refuse(capi::CRYPT_E_ASN1_EOD);
    }
    position_ += size;
}

unsigned char BerReader::peek() {
    const auto next = in_.peek();
    if (next == std::istream::traits_type::eof()) {
        internal::refuse(capi::CRYPT_E_ASN1_EOD);
    }
    return static_cast<unsigned char>(next);
}

BerReader::Head BerReader::head() {
    Head head{octet(), std::nullopt};
    if ((head.tag & internal::longTag) == internal::longTag) {
        internal::refuse(capi::CRYPT_E_ASN1_CORRUPT);
    }
    const unsigned char first = octet();
    if (first < internal::longLength) {
        head.length = first;
        return head;
    }
    const unsigned count = first & ~unsigned{internal::longLength};
    if (count == 0) {
        if ((head.tag & internal::constructed) == 0) {
            internal::refuse(capi::CRYPT_E_ASN1_CORRUPT);
        }
        return head;
    }
    if (count > internal::mostLengthOctets) {
        internal::refuse(capi::CRYPT_E_ASN1_LARGE);
    }
    std::uint64_t length = 0;
    for (unsigned i = 0; i < count; ++i) {
        length = (length << 8U) | octet();
    }
    constexpr std::uint64_t largest = std::uint64_t{1} << 62U; // file offsets are signed
    if (length > largest) {
        internal::refuse(capi::CRYPT_E_ASN1_LARGE);
    }
    head.length = length;
    return head;
}

BerReader::Scope BerReader::enter(unsigned char tag, Head* form) {
    const Head read = head();
    if (read.tag != tag) {
        internal::refuse(capi::CRYPT_E_ASN1_BADTAG);
    }
    if (form != nullptr) {
        *form = read;
    }
    return {read.length ? std::optional(position_ + *read.length) : std::nullopt};
}

bool BerReader::more(const Scope& scope) {
    if (scope.end) {
        if (position_ > *scope.end) {
            internal::refuse(capi::CRYPT_E_ASN1_CORRUPT);
        }
        return position_ < *scope.end;
    }
    if (peek() != 0) {
        return true;
    }
    octet();
    if (octet() != 0) {
        internal::refuse(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return false;
}

void BerReader::skip() {
    skipContents(head(), 0);
}

void BerReader::skipContents(const Head& read, unsigned depth) {
    if (read.length) {
        pass(*read.length);
        return;
    }
    if (depth == internal::deepest) {
        internal::refuse(capi::CRYPT_E_ASN1_LARGE);
    }
    while (more({std::nullopt})) {
        skipContents(head(), depth + 1);
    }
}

std::string BerReader::value(std::size_t limit) {
    std::string octets;
    copy_ = &octets;
    limit_ = limit;
    try {
        skip();
    } catch (...) {
        copy_ = nullptr;
        throw;
    }
    copy_ = nullptr;
    return octets;
}

std::string berHead(unsigned char tag, std::uint64_t length) {
    std::string octets;
    if (length < internal::longLength) {
        octets.push_back(static_cast<char>(length));
    } else {
        for (; length != 0; length >>= 8U) {
            octets.insert(octets.begin(), static_cast<char>(length & 0xFFU));
        }
        octets.insert(octets.begin(), static_cast<char>(internal::longLength | octets.size()));
    }
    octets.insert(octets.begin(), static_cast<char>(tag));
    return octets;
}

} // namespace orvik::plugin::wincrypt
