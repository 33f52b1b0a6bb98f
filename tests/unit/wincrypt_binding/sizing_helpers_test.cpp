// The two-call protocol of the helpers that give a result of a size known to the service only.

#include "binding.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <tuple>

namespace wincrypt_binding {
namespace {

constexpr unsigned long handle = 0x77;
constexpr DWORD refused = 0x80090020;

/// One answer for every entry point behind a helper: a value, and where the protocol fails.
struct Protocol {
    std::string value;
    std::optional<DWORD> askedSize; ///< told to who asks, where it is not the value's
    bool failsFirst = false;
    bool failsSecond = false;
    std::vector<std::pair<bool, DWORD>> asked; ///< whether there was a buffer, and the size going in

    BOOL answer(void* buffer, DWORD* size) {
        asked.emplace_back(buffer != nullptr, *size);
        if (buffer == nullptr ? failsFirst : failsSecond) {
            return fail(refused);
        }
        *size = static_cast<DWORD>(value.size());
        if (buffer != nullptr) {
            std::memcpy(buffer, value.data(), value.size());
        } else {
            *size = askedSize.value_or(*size);
        }
        return 1;
    }
};

struct Helper {
    const char* name;
    std::string (*call)();
    void (*install)(Protocol&);
    bool oneShort = false;  ///< the result ends one octet early
    bool bounded = false;   ///< 2 to 102400 octets only
    bool throws = false;    ///< failures are thrown
    bool takesZero = false; ///< size 0 is fetched too
};

/// Lets the protocol answer for an entry point: its DWORD pointer is the size, what stands before that the buffer.
template <class... A>
void install(Protocol& protocol, std::function<BOOL(A...)>& entry) {
    entry = [&protocol](A... arguments) {
        constexpr std::array<bool, sizeof...(A)> isSize{std::is_same_v<A, DWORD*>...};
        constexpr auto index = static_cast<std::size_t>(std::find(isSize.begin(), isSize.end(), true) - isSize.begin());
        const auto all = std::make_tuple(arguments...);
        return protocol.answer(std::get<index - 1>(all), std::get<index>(all));
    };
}

const std::vector<Helper> helpers{
    {.name = "CryptGetProvParamEx",
     .call = [] { return wincrypt::CryptGetProvParamEx(handle, 4); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptGetProvParam); },
     .oneShort = true},
    {.name = "CryptGetKeyParamEx",
     .call = [] { return wincrypt::CryptGetKeyParamEx(handle, 26); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptGetKeyParam); }},
    {.name = "CertGetCertificateContextPropertyEx",
     .call = [] { return wincrypt::CertGetCertificateContextPropertyEx(nullptr, 11); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CertGetCertificateContextProperty); },
     .oneShort = true,
     .bounded = true},
    {.name = "CryptDecodeObjectEx",
     .call = [] { return wincrypt::CryptDecodeObjectEx(1, "2.5.29.15", nullptr, 0); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptDecodeObject); },
     .oneShort = true,
     .bounded = true},
    {.name = "CryptMsgGetParamEx",
     .call = [] { return wincrypt::CryptMsgGetParamEx(nullptr, 12, 3); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptMsgGetParam); },
     .throws = true,
     .takesZero = true},
    {.name = "CryptEncodeObjectEx",
     .call = [] { return wincrypt::CryptEncodeObjectEx(1, "2.5.29.15", nullptr); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptEncodeObject); },
     .throws = true},
    {.name = "CryptExportPublicKeyInfoEx",
     .call = [] { return wincrypt::CryptExportPublicKeyInfoEx(handle, 1, 0x10001); },
     .install = [](Protocol& protocol) { install(protocol, service().on.CryptExportPublicKeyInfo); },
     .bounded = true,
     .throws = true},
};

class SizingHelper : public DoubleFixture, public testing::WithParamInterface<Helper> {
protected:
    SizingHelper() { GetParam().install(protocol); }
    static std::string call() { return GetParam().call(); }
    static std::string shortened(const std::string& value) {
        return GetParam().oneShort ? value.substr(0, value.size() - 1) : value;
    }
    /// A failure of the helper: empty, or thrown with the service's last error.
    static void expectFailure() {
        if (GetParam().throws) {
            EXPECT_EQ(thrownBy<SystemException>(call), (Thrown{code(refused), "wincrypt_handler", GetParam().name, 0}));
        } else {
            EXPECT_EQ(call(), "");
            EXPECT_EQ(wincrypt::GetLastErrorEx(), refused);
        }
    }

    Protocol protocol;
};

INSTANTIATE_TEST_SUITE_P(Of, SizingHelper, testing::ValuesIn(helpers),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(SizingHelper, AsksTheSizeThenFetches) {
    protocol.value = "four";
    EXPECT_EQ(call(), shortened("four"));
    EXPECT_EQ(protocol.asked, (std::vector<std::pair<bool, DWORD>>{{false, 0}, {true, 4}}));
}

TEST_P(SizingHelper, KeepsTheSizeOfTheFirstCall) {
    protocol.value = "four";
    protocol.askedSize = 6;
    EXPECT_EQ(call(), shortened(std::string("four\0\0", 6)));
}

TEST_P(SizingHelper, HandsOverBinaryValues) {
    protocol.value = std::string("\0\xFF\0\x80\x01", 5);
    EXPECT_EQ(call(), shortened(protocol.value));
}

TEST_P(SizingHelper, FailsWhenTheSizeCannotBeAsked) {
    protocol.value = "four";
    protocol.failsFirst = true;
    expectFailure();
    EXPECT_EQ(protocol.asked.size(), 1U);
}

TEST_P(SizingHelper, FailsWhenTheValueCannotBeFetched) {
    protocol.value = "four";
    protocol.failsSecond = true;
    expectFailure();
    EXPECT_EQ(protocol.asked.size(), 2U);
}

TEST_P(SizingHelper, GivesAnEmptyResultForSizeZero) {
    EXPECT_EQ(call(), "");
    EXPECT_EQ(protocol.asked.size(), GetParam().takesZero ? 2U : 1U);
}

TEST_P(SizingHelper, RefusesSizesOutOfBoundsWithoutFetching) {
    for (const DWORD size : {1U, 102401U, 0xFFFFFFFFU}) {
        if (!GetParam().bounded && size != 1) {
            continue;
        }
        protocol = Protocol();
        protocol.value = "x";
        protocol.askedSize = size;
        EXPECT_EQ(call(), GetParam().bounded ? "" : shortened("x")) << size;
        EXPECT_EQ(protocol.asked.size(), GetParam().bounded ? 1U : 2U) << size;
    }
}

TEST_P(SizingHelper, TakesTheSmallestAndTheLargestSize) {
    for (const std::size_t size : {std::size_t{2}, std::size_t{102400}}) {
        protocol = Protocol();
        protocol.value.assign(size, 'x');
        EXPECT_EQ(call(), shortened(protocol.value)) << size;
    }
}

TEST_P(SizingHelper, StaysTextForReadersOfTheTerminator) {
    protocol.value = "last octet not zero";
    const std::string result = call();
    EXPECT_EQ(std::strlen(result.c_str()), protocol.value.size());
}

class SizingHelperWithoutService : public DoubleFixture, public testing::WithParamInterface<Helper> {
protected:
    SizingHelperWithoutService() : DoubleFixture(Slots{}) {}
};

INSTANTIATE_TEST_SUITE_P(Of, SizingHelperWithoutService, testing::ValuesIn(helpers),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(SizingHelperWithoutService, Throws) {
    EXPECT_EQ(thrownBy<CryptoException>(GetParam().call), noServiceInstalled);
}

/// What the tests above leave out: the arguments that are passed on.
class SizingHelperArguments : public DoubleFixture {
protected:
    void TearDown() override {
        EXPECT_EQ(service().calls().size(), 1U);
        DoubleFixture::TearDown();
    }
    static std::string trace() { return service().trace().front(); }
};

TEST_F(SizingHelperArguments, OfCryptGetProvParamEx) {
    wincrypt::CryptGetProvParamEx(handle, 36);
    EXPECT_EQ(trace(), "CryptGetProvParam(119, 36, null, &0, 0)");
}

TEST_F(SizingHelperArguments, OfCryptGetKeyParamEx) {
    wincrypt::CryptGetKeyParamEx(handle, 26);
    EXPECT_EQ(trace(), "CryptGetKeyParam(119, 26, null, &0, 0)");
}

TEST_F(SizingHelperArguments, OfCertGetCertificateContextPropertyEx) {
    wincrypt::CertGetCertificateContextPropertyEx(nullptr, 2);
    EXPECT_EQ(trace(), "CertGetCertificateContextProperty(null, 2, null, &0)");
}

TEST_F(SizingHelperArguments, OfCryptDecodeObjectEx) {
    const BYTE octet = 5;
    wincrypt::CryptDecodeObjectEx(0x10001, "2.5.29.15", &octet, 1);
    EXPECT_EQ(trace(), "CryptDecodeObject(0x10001, \"2.5.29.15\", pointer, 1, 0, null, &0)");
}

TEST_F(SizingHelperArguments, OfCryptMsgGetParamEx) {
    EXPECT_THROW(wincrypt::CryptMsgGetParamEx(nullptr, 12, 3), SystemException);
    EXPECT_EQ(trace(), "CryptMsgGetParam(null, 12, 3, null, &0)");
}

TEST_F(SizingHelperArguments, OfCryptEncodeObjectEx) {
    const int value = 5;
    EXPECT_THROW(wincrypt::CryptEncodeObjectEx(0x10000, "2.5.29.15", &value), SystemException);
    EXPECT_EQ(trace(), "CryptEncodeObject(0x10000, \"2.5.29.15\", pointer, null, &0)");
}

TEST_F(SizingHelperArguments, OfCryptExportPublicKeyInfoEx) {
    EXPECT_THROW(wincrypt::CryptExportPublicKeyInfoEx(handle, 2, 0x10001), SystemException);
    EXPECT_EQ(trace(), "CryptExportPublicKeyInfo(119, 2, 0x10001, null, &0)");
}

class OneShort : public DoubleFixture {
protected:
    OneShort() { protocolHelper().install(protocol); }
    static const Helper& protocolHelper() { return helpers.front(); }
    Protocol protocol;
};

TEST_F(OneShort, GivesTheThreeCharactersOfATextOfFourOctets) {
    protocol.value = std::string("abc\0", 4);
    EXPECT_EQ(wincrypt::CryptGetProvParamEx(handle, 4), "abc");
}

TEST_F(OneShort, GivesTheFirstThreeOfFourBinaryOctets) {
    protocol.value = "\x01\x02\x03\x04";
    EXPECT_EQ(wincrypt::CryptGetProvParamEx(handle, 16), "\x01\x02\x03");
}

/// A key usage of one octet: that octet is the structure's last, and the result is one short.
TEST_F(OneShort, KeepsTheLastOctetForTheStructuresOwnPointersAcrossMoves) {
    const std::string encoded = "\x03\x02\x07\x80";
    const auto* type = reinterpret_cast<const char*>(std::uintptr_t{capi::X509_KEY_USAGE});
    auto decoded = wincrypt::CryptDecodeObjectEx(1, type, reinterpret_cast<const BYTE*>(encoded.data()),
                                                 static_cast<DWORD>(encoded.size()));
    ASSERT_EQ(decoded.size(), sizeof(CRYPT_BIT_BLOB));
    const std::string moved = std::move(decoded);
    const auto* bits = reinterpret_cast<const CRYPT_BIT_BLOB*>(moved.data());
    EXPECT_EQ(bits->cbData, 1U);
    EXPECT_EQ(bits->cUnusedBits, 7U);
    EXPECT_EQ(bits->pbData, reinterpret_cast<const BYTE*>(moved.data()) + sizeof(CRYPT_BIT_BLOB));
    EXPECT_EQ(*bits->pbData, 0x80);
}

} // namespace
} // namespace wincrypt_binding
