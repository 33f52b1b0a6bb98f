#include "crypto/wincrypt/tools_signers.hpp"

#include "ber_reader.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"

#include <algorithm>
#include <array>
#include <sstream>
#include <string>
#include <vector>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

using crypto::exception::SystemException;

namespace tag {
constexpr unsigned char sequence = 0x30;
constexpr unsigned char set = 0x31;
constexpr unsigned char explicit0 = 0xA0; // content of ContentInfo; and the certificates of SignedData
constexpr unsigned char certificates = 0xA0;
constexpr unsigned char crls = 0xA1;
} // namespace tag

/// id-signedData (1.2.840.113549.1.7.2) as a whole value.
constexpr const char* signedData = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02";

/// Octets kept of a message: certificates, CRLs and signers. The embedded service reads no larger message.
constexpr std::size_t retained = 16U << 20U;

/// Digest algorithms, certificates, or signers of a message: an element of two octets costs twenty times as much when
/// it is kept. The embedded service reads no message with more than half as many.
constexpr std::size_t elementsOfASet = 8192;

/// Octets of a version, an object identifier or an algorithm.
constexpr std::size_t smallValue = 4096;

[[noreturn]] void refuse(DWORD code) {
    raise(SystemException(code), {"tools_signers", "addSigners"});
}

/// The values that wrap a SignedData, from the outside: ContentInfo, its content, SignedData.
constexpr std::array<unsigned char, 3> wrappers = {tag::sequence, tag::explicit0, tag::sequence};

/// A message taken apart. Elements are whole values.
struct Parts {
    std::array<bool, wrappers.size()> definite{};
    std::string version;
    std::vector<std::string> digestAlgorithms;
    std::string contentType;
    std::uint64_t contentAt = 0; ///< where encapContentInfo begins, from the beginning of the message
    std::uint64_t contentSize = 0;
    std::vector<std::string> certificates;
    std::string crls; ///< with its tag; empty when absent
    std::vector<std::string> signers;
};

class PartsReader {
public:
    explicit PartsReader(std::istream& in) : reader_(in) {}

    Parts read() {
        std::array<BerReader::Scope, wrappers.size()> scopes;
        scopes[0] = enter(0);
        if (reader_.value(smallValue) != signedData) {
            refuse(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        scopes[1] = enter(1);
        scopes[2] = enter(2);
        readSignedData(scopes[2]);
        for (std::size_t i = wrappers.size(); i-- > 0;) {
            if (reader_.more(scopes[i])) {
                refuse(capi::CRYPT_E_ASN1_CORRUPT);
            }
        }
        return std::move(parts_);
    }

private:
    BerReader::Scope enter(std::size_t level) {
        BerReader::Head head{};
        const auto scope = reader_.enter(wrappers[level], &head);
        parts_.definite[level] = head.length.has_value();
        return scope;
    }

    void readSignedData(const BerReader::Scope& scope) {
        parts_.version = keep(reader_.value(smallValue));
        parts_.digestAlgorithms = elements(tag::set);
        readContent();
        if (reader_.more(scope) && reader_.peek() == tag::certificates) {
            parts_.certificates = elements(tag::certificates);
        }
        if (reader_.more(scope) && reader_.peek() == tag::crls) {
            parts_.crls = keep(reader_.value(left_));
        }
        parts_.signers = elements(tag::set);
    }

    /// EncapsulatedContentInfo: its type is kept, its content is passed over.
    void readContent() {
        parts_.contentAt = reader_.position();
        const auto scope = reader_.enter(tag::sequence);
        parts_.contentType = reader_.value(smallValue);
        while (reader_.more(scope)) {
            reader_.skip();
        }
        parts_.contentSize = reader_.position() - parts_.contentAt;
    }

    std::vector<std::string> elements(unsigned char tag) {
        std::vector<std::string> found;
        for (const auto scope = reader_.enter(tag); reader_.more(scope);) {
            if (found.size() == elementsOfASet) {
                refuse(capi::CRYPT_E_ASN1_LARGE);
            }
            found.push_back(keep(reader_.value(left_)));
        }
        return found;
    }

    std::string keep(std::string value) {
        left_ -= std::min(left_, value.size());
        return value;
    }

    BerReader reader_;
    Parts parts_;
    std::size_t left_ = retained;
};

Parts partsOf(const std::string& message) {
    std::istringstream in(message);
    return PartsReader(in).read();
}

/// Into the order of DER where the others are in it, else to the end.
void insert(std::vector<std::string>& set, const std::string& value) {
    const auto at =
        std::is_sorted(set.begin(), set.end()) ? std::upper_bound(set.begin(), set.end(), value) : set.end();
    set.insert(at, value);
}

/// The OBJECT IDENTIFIER that an AlgorithmIdentifier begins with.
std::string algorithmOf(const std::string& identifier) {
    std::istringstream in(identifier);
    BerReader reader(in);
    reader.enter(tag::sequence);
    return reader.value(smallValue);
}

void mergeDigestAlgorithms(std::vector<std::string>& all, const std::vector<std::string>& added) {
    for (const std::string& algorithm : added) {
        const std::string oid = algorithmOf(algorithm);
        if (std::none_of(all.begin(), all.end(), [&](const auto& other) { return algorithmOf(other) == oid; })) {
            insert(all, algorithm);
        }
    }
}

void merge(Parts& parts, const Parts& added) {
    if (added.contentType != parts.contentType) {
        refuse(capi::CRYPT_E_UNEXPECTED_MSG_TYPE);
    }
    // A version is one INTEGER of one octet; the larger one allows what either message has (RFC 5652, 5.1).
    parts.version = std::max(parts.version, added.version);
    mergeDigestAlgorithms(parts.digestAlgorithms, added.digestAlgorithms);
    for (const std::string& certificate : added.certificates) {
        if (std::find(parts.certificates.begin(), parts.certificates.end(), certificate) == parts.certificates.end()) {
            insert(parts.certificates, certificate);
        }
    }
    for (const std::string& signer : added.signers) {
        insert(parts.signers, signer);
    }
}

std::string setOf(unsigned char tag, const std::vector<std::string>& values) {
    std::string contents;
    for (const std::string& value : values) {
        contents += value;
    }
    return berHead(tag, contents.size()) + contents;
}

/// Everything around the content, in the lengths' form that the message has.
std::pair<std::string, std::string> frame(const Parts& parts) {
    constexpr std::uint64_t endOfContents = 2;
    std::string head = parts.version + setOf(tag::set, parts.digestAlgorithms);
    std::string tail = (parts.certificates.empty() ? std::string{} : setOf(tag::certificates, parts.certificates)) +
                       parts.crls + setOf(tag::set, parts.signers);
    for (std::size_t i = wrappers.size(); i-- > 0;) {
        if (i == 0) {
            head.insert(0, signedData);
        }
        if (parts.definite[i]) {
            head.insert(0, berHead(wrappers[i], head.size() + parts.contentSize + tail.size()));
        } else {
            head.insert(0, {static_cast<char>(wrappers[i]), '\x80'});
            tail.append(endOfContents, '\0');
        }
    }
    return {head, tail};
}

void write(const OutputSink& output, boost::string_view octets) {
    if (!octets.empty() && !output(reinterpret_cast<const unsigned char*>(octets.data()), octets.size())) {
        refuse(capi::CRYPT_E_MSG_ERROR);
    }
}

void copy(std::istream& in, std::uint64_t size, const OutputSink& output) {
    constexpr std::uint64_t chunk = 1U << 20U;
    std::string buffer(chunk, '\0');
    while (size != 0) {
        const auto part = std::min(size, chunk);
        in.read(buffer.data(), static_cast<std::streamsize>(part));
        if (static_cast<std::uint64_t>(in.gcount()) != part) {
            refuse(capi::CRYPT_E_ASN1_EOD);
        }
        write(output, {buffer.data(), static_cast<std::size_t>(part)});
        size -= part;
    }
}

} // namespace
} // namespace internal

void addSigners(std::istream& message, boost::string_view added, const OutputSink& output) {
    const auto start = message.tellg();
    auto parts = internal::PartsReader(message).read();
    internal::merge(parts, internal::partsOf(std::string(added)));
    const auto [head, tail] = internal::frame(parts);
    internal::write(output, head);
    message.clear();
    message.seekg(start + static_cast<std::streamoff>(parts.contentAt));
    internal::copy(message, parts.contentSize, output);
    internal::write(output, tail);
}

} // namespace orvik::plugin::wincrypt::tools
