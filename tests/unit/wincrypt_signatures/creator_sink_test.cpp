// Creators whose output goes to a sink, and whose content's size is known beforehand.

#include "creator_fixture.hpp"

#include <stdexcept>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::crypto::AuthProvider;
using testing::IsEmpty;

class CreatorSinkTest : public CreatorFixture {
protected:
    /// Parameters with a sink that collects.
    binary::ExtendedParams collecting() {
        binary::ExtendedParams made;
        made.certificate = linked();
        made.sink = [this](const unsigned char* data, std::size_t size) {
            EXPECT_GT(size, 0U);
            taken_.append(reinterpret_cast<const char*>(data), size);
            return true;
        };
        return made;
    }
    /// The size that the service is given at opening.
    DWORD announced(const Params& params) {
        DWORD size = 0;
        service().on.CryptMsgOpenToEncode = [&](DWORD encoding, DWORD flags, DWORD type, const void* info, char* inner,
                                                CMSG_STREAM_INFO* stream) {
            size = stream->cbContent;
            return Defaults::CryptMsgOpenToEncode(encoding, flags, type, info, inner, stream);
        };
        binary::attached::Creator creator;
        creator.initialize(params);
        service().on.CryptMsgOpenToEncode = nullptr;
        return size;
    }
    static constexpr int badLength = static_cast<int>(capi::CRYPT_E_BAD_LEN);

    std::string taken_;
};

TEST_F(CreatorSinkTest, GetsTheMessageAsItIsMade) {
    binary::attached::Creator creator;
    creator.initialize(collecting());
    update(creator, "some ");
    EXPECT_EQ(taken_, "HEADsome");
    update(creator, "content");
    EXPECT_EQ(finalize(creator), "");
    EXPECT_EQ(taken_, "HEADsome contentTAIL");
}

TEST_F(CreatorSinkTest, GetsADetachedMessageToo) {
    binary::detached::Creator creator;
    creator.initialize(collecting());
    update(creator, "content");
    EXPECT_EQ(finalize(creator), "");
    EXPECT_EQ(taken_, "HEADTAIL");
}

TEST_F(CreatorSinkTest, WithoutASinkTheMessageIsReturned) {
    auto params = collecting();
    params.sink = {};
    binary::attached::Creator creator;
    creator.initialize(params);
    update(creator, "content");
    EXPECT_EQ(finalize(creator), "HEADcontentTAIL");
}

TEST_F(CreatorSinkTest, RefusingSinkIsTheServicesRefusal) {
    auto params = collecting();
    params.sink = [](const unsigned char*, std::size_t) { return false; };
    binary::attached::Creator creator;
    creator.initialize(params);
    EXPECT_EQ(thrownBy<SystemException>([&] { update(creator, "content"); }).function, "validateCryptMsgUpdate");
    std::vector<unsigned char> out;
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }).function, "finalizeImpl");
    EXPECT_FALSE(creator.finalize(out));
}

TEST_F(CreatorSinkTest, ThrowingSinkIsHeardByTheCaller) {
    bool full = false;
    auto params = collecting();
    params.sink = [&](const unsigned char*, std::size_t) -> bool {
        if (full) {
            throw std::domain_error("disk full");
        }
        return true;
    };
    std::vector<unsigned char> out;
    binary::attached::Creator creator;
    full = true;
    creator.initialize(params);
    EXPECT_THROW(update(creator, "content"), std::domain_error);
    full = false;
    creator.initialize(params);
    update(creator, "content");
    full = true;
    EXPECT_THROW(creator.finalize(out), std::domain_error);
    EXPECT_FALSE(creator.finalize(out));
}

TEST_F(CreatorSinkTest, RefusedPinLeavesTheCreatorOpenAndTheSinkItsPart) {
    binary::attached::Creator creator;
    creator.initialize(collecting());
    update(creator, "data");
    std::vector<unsigned char> out;
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>(); });
    EXPECT_FALSE(creator.finalize(out));
    EXPECT_EQ(taken_, "HEADdat");
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>("1234"); });
    EXPECT_EQ(finalize(creator), "");
    EXPECT_EQ(taken_, "HEADdataTAIL");
}

TEST_F(CreatorSinkTest, ServiceLearnsTheSizeWhereItCanHoldIt) {
    auto params = collecting();
    EXPECT_EQ(announced(params), capi::CMSG_INDEFINITE_LENGTH);
    params.contentSize = 7;
    EXPECT_EQ(announced(params), 7U);
    params.contentSize = 0xFFFFFFFE;
    EXPECT_EQ(announced(params), 0xFFFFFFFEU);
    params.contentSize = 0xFFFFFFFF;
    EXPECT_EQ(announced(params), capi::CMSG_INDEFINITE_LENGTH);
    params.contentSize = 0x100000001;
    EXPECT_EQ(announced(params), capi::CMSG_INDEFINITE_LENGTH);
}

TEST_F(CreatorSinkTest, ContentOfAnotherSizeIsRefused) {
    auto params = collecting();
    params.contentSize = 7;
    std::vector<unsigned char> out;
    unsigned asked = 0;
    AuthProvider::setDialog([&](const auto&, unsigned) {
        ++asked;
        return boost::optional<std::string>("1234");
    });
    binary::attached::Creator creator;
    creator.initialize(params);
    update(creator, "conten");
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }), finalization(badLength));
    EXPECT_FALSE(creator.finalize(out));
    creator.initialize(params);
    update(creator, "content");
    EXPECT_EQ(thrownBy<SystemException>([&] { update(creator, "s"); }),
              (Thrown{badLength, "signature_creator", "updateImpl", 0}));
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }), finalization(badLength));
    EXPECT_EQ(asked, 0U);
    creator.initialize(params);
    taken_.clear();
    update(creator, "content");
    finalize(creator);
    EXPECT_EQ(taken_, "HEADcontentTAIL");
}

TEST_F(CreatorSinkTest, EmptyContentStaysAnErrorWithItsSizeGiven) {
    auto params = collecting();
    params.contentSize = 0;
    binary::attached::Creator creator;
    creator.initialize(params);
    std::vector<unsigned char> out;
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }).function, "finalizeImpl");
    EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(CreatorSinkTest, CallbackWithoutArgumentRefuses) {
    BOOL answer = 1;
    service().on.CryptMsgOpenToEncode = [&](DWORD encoding, DWORD flags, DWORD type, const void* info, char* inner,
                                            CMSG_STREAM_INFO* stream) {
        BYTE octet = 0;
        answer = stream->pfnStreamOutput(nullptr, &octet, 1, 0);
        EXPECT_EQ(stream->pfnStreamOutput(stream->pvArg, nullptr, 0, 1), 1);
        return Defaults::CryptMsgOpenToEncode(encoding, flags, type, info, inner, stream);
    };
    binary::attached::Creator creator;
    creator.initialize(collecting());
    EXPECT_EQ(answer, 0);
}

} // namespace
} // namespace wincrypt_signatures
