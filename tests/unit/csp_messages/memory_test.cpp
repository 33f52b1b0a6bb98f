// Messages of any size in memory of one size. Each case runs in a child process, whose peak is asked for at its end.

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "exports/export.hpp"
#include "in_child.hpp"
#include "signing.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace api = csp::exports;

constexpr std::size_t pieceSize = 1U << 20U;
constexpr std::size_t pieces = 256;
constexpr long allowedMib = 64;

/// Content that is made as it is needed.
const Bytes& piece() {
    static const Bytes made(pieceSize, 0x5A);
    return made;
}

BOOL discard(const void* /*argument*/, BYTE* /*data*/, DWORD /*size*/, BOOL /*final*/) {
    return 1;
}

/// Feeds the content, the last piece final.
bool feedContent(const Msg& msg) {
    for (std::size_t i = 0; i < pieces; ++i) {
        if (msg.feed(piece(), whole, i + 1 == pieces) != 0) {
            return false;
        }
    }
    return true;
}

/// Message octets, given to a message that reads them as they are made.
struct Pipe {
    const Msg* reader;
    bool ok = true;
};

BOOL pass(const void* argument, BYTE* data, DWORD size, BOOL final) {
    auto& pipe = *static_cast<Pipe*>(const_cast<void*>(argument));
    pipe.ok = pipe.ok && pipe.reader->feed({data, size}, whole, final != 0) == 0;
    return pipe.ok ? 1 : 0;
}

TEST(Memory, StaysFlatWhileAnAttachedMessageIsMadeAndChecked) {
    EXPECT_EQ(inChild(allowedMib,
                      [] {
                          const Signer signer = makeSigner(KeyKind::Gost256);
                          CMSG_STREAM_INFO sink{capi::CMSG_INDEFINITE_LENGTH, discard, nullptr};
                          const Msg reader = Msg::decode(0, &sink);
                          Pipe pipe{&reader};
                          return signInto(signer, {capi::CMSG_INDEFINITE_LENGTH, pass, &pipe}, false, feedContent) &&
                                 reader.verify(signer.certificate) == 0;
                      }),
              0);
}

TEST(Memory, StaysFlatWhileADetachedMessageIsMadeAndChecked) {
    EXPECT_EQ(inChild(allowedMib,
                      [] {
                          const Signer signer = makeSigner(KeyKind::Gost256);
                          CMSG_STREAM_INFO sink{capi::CMSG_INDEFINITE_LENGTH, discard, nullptr};
                          const Msg reader = Msg::decode(capi::CMSG_DETACHED_FLAG, &sink);
                          Pipe pipe{&reader};
                          return signInto(signer, {capi::CMSG_INDEFINITE_LENGTH, pass, &pipe}, true, feedContent) &&
                                 feedContent(reader) && reader.verify(signer.certificate) == 0;
                      }),
              0);
}

} // namespace
} // namespace klunortredi::test
