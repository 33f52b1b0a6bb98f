// Every row of the list of entry points: its forwarder reaches it, with the arguments unchanged and the result handed
// back, whatever its spelling in the service's library.

#include "binding.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <tuple>

namespace wincrypt_binding {
namespace {

using service_double::Answers;

#define COUNT_FORWARDED +1
#define COUNT_LOADER +0
#define COUNT_CONST +0
#define COUNT_MUTABLE +1
#define COUNT_REACH(reach, ...) COUNT_##reach
#define COUNT_QUALIFIER(reach, qualifier, ...) COUNT_##qualifier
static_assert(KLUNORTREDI_ENTRY_POINT_COUNT == 59);
static_assert(0 KLUNORTREDI_ENTRY_POINTS(COUNT_REACH) == 56, "all but the enumeration and the last error");
static_assert(0 KLUNORTREDI_ENTRY_POINTS(COUNT_QUALIFIER) == 3);

/// Addresses that an argument can have: zeroed, so that even a text or a size may be read there.
alignas(std::max_align_t) std::array<char, 4096> arena{};

template <class T>
T value(std::size_t n) {
    constexpr std::size_t step = 64;
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<T>(arena.data() + step * n);
    } else {
        return static_cast<T>(n + 1);
    }
}

constexpr std::size_t resultNumber = 40;

/// Hands every forwarder to `visit`: its name, its symbol, itself, and where the test's answer to it lies.
template <class Visit>
void forEachForwarder(Visit visit) {
#define VISIT_LOADER(member, symbol)
#define VISIT_FORWARDED(member, symbol) visit(#member, symbol, &wincrypt::member, &Answers::member);
#define VISIT(reach, qualifier, result, member, pointer, symbol, ...) VISIT_##reach(member, symbol)
    KLUNORTREDI_ENTRY_POINTS(VISIT)
}

/// Calls `forwarder` with arguments of which no two are alike and checks what arrives at the service.
template <class R, class... A>
void expectForwarded(const char* name, R (*forwarder)(A...), std::function<R(A...)>& answer) {
    SCOPED_TRACE(name);
    const auto sent = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::tuple<A...>{value<A>(I)...};
    }(std::index_sequence_for<A...>{});
    std::size_t arrivals = 0;
    answer = [&](A... arguments) -> R {
        ++arrivals;
        EXPECT_EQ(std::tuple<A...>{arguments...}, sent);
        if constexpr (!std::is_void_v<R>) {
            return value<R>(resultNumber);
        }
    };
    service().clearCalls();
    if constexpr (std::is_void_v<R>) {
        std::apply(forwarder, sent);
    } else {
        EXPECT_EQ(std::apply(forwarder, sent), value<R>(resultNumber));
    }
    EXPECT_EQ(arrivals, 1U);
    EXPECT_EQ(service().count(name), 1U) << "the call landed in another entry point";
}

void expectAllForwarded() {
    forEachForwarder([](const char* name, const char*, auto forwarder, auto answer) {
        expectForwarded(name, forwarder, service().on.*answer);
    });
}

class EntryPoints : public DoubleFixture {};

TEST_F(EntryPoints, AreReachedByTheirForwardersWithArgumentsUnchanged) {
    expectAllForwarded();
}

TEST_F(EntryPoints, AnswerTheSecondTimeToo) {
    expectAllForwarded();
    expectAllForwarded();
}

TEST_F(EntryPoints, OfTheLastErrorAreReachedThroughTheirHelpers) {
    DWORD lastError = 0;
    service().on.SetLastError = [&](DWORD code) { lastError = code; };
    service().on.GetLastError = [&] { return lastError; };
    wincrypt::SetLastErrorEx(0x80090016);
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0x80090016U);
    wincrypt::SetLastError(7);
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 7U);
}

TEST_F(EntryPoints, OfTheEnumerationIsReachedThroughEnumProvidersEx) {
    wincrypt::EnumProvidersEx();
    EXPECT_EQ(service().count("CryptEnumProviders"), 1U);
}

TEST_F(EntryPoints, LeaveGetLastErrorAtZeroAndOutOfTheService) {
    service().on.GetLastError = [] {
        ADD_FAILURE() << "the service was asked";
        return 7U;
    };
    wincrypt::SetLastError(5);
    EXPECT_EQ(wincrypt::GetLastError(), 0U);
}

class SuffixedEntryPoints : public DoubleFixture {
protected:
    SuffixedEntryPoints() : DoubleFixture(Slots{.cryptoPro = "suffixed"}) {}
};

TEST_F(SuffixedEntryPoints, AreFoundByTheirSecondSpelling) {
    expectAllForwarded();
    wincrypt::SetLastErrorEx(7);
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 7U);
}

class EntryPointsInTwoLibraries : public DoubleFixture {
protected:
    EntryPointsInTwoLibraries() : DoubleFixture(Slots{.vipNet = "first", .kernel32 = "second"}) {}
};

TEST_F(EntryPointsInTwoLibraries, AreFoundInEither) {
    expectAllForwarded();
}

class MissingEntryPoints : public DoubleFixture {
protected:
    MissingEntryPoints() : DoubleFixture(Slots{.cryptoPro = "empty"}) {}

    template <class R, class... A>
    void expectAbsent(const char* symbol, R (*forwarder)(A...)) {
        SCOPED_TRACE(symbol);
        clearLog();
        for (int attempt = 0; attempt < 2; ++attempt) {
            if constexpr (std::is_void_v<R>) {
                forwarder(A{}...);
            } else {
                EXPECT_EQ(forwarder(A{}...), R{});
            }
        }
        const LogRecord search{Severity::info, std::string("0, function=") + symbol};
        EXPECT_THAT(log(), testing::ElementsAre(search, search));
    }
};

TEST_F(MissingEntryPoints, AnswerZeroAndAreSearchedAgainEachTime) {
    forEachForwarder(
        [this](const char*, const char* symbol, auto forwarder, auto) { expectAbsent(symbol, forwarder); });
}

class EntryPointsWithoutService : public DoubleFixture {
protected:
    EntryPointsWithoutService() : DoubleFixture(Slots{}) {}

    template <class R, class... A>
    static Thrown thrownByForwarder(R (*forwarder)(A...)) {
        return thrownBy<CryptoException>([&] { forwarder(A{}...); });
    }
};

TEST_F(EntryPointsWithoutService, AllThrow) {
    forEachForwarder([](const char* name, const char*, auto forwarder, auto) {
        EXPECT_EQ(thrownByForwarder(forwarder), noServiceInstalled) << name;
    });
}

TEST(EntryPointList, LooksUpEveryMemberUnderItsOwnNameButFour) {
    const std::map<std::string_view, std::string_view> exceptions{{"CryptSignHashW", "CryptSignHash"},
                                                                  {"CryptVerifySignatureW", "CryptVerifySignature"},
                                                                  {"CryptBinaryToStringW", "CryptBinaryToString"},
                                                                  {"FormatMessageW", "FormatMessage"}};
    std::size_t checked = 0;
    const auto check = [&](std::string_view member, std::string_view symbol) {
        const auto exception = exceptions.find(member);
        EXPECT_EQ(symbol, exception == exceptions.end() ? member : exception->second);
        ++checked;
    };
#define CHECK_SYMBOL(reach, qualifier, result, member, pointer, symbol, ...) check(#member, symbol);
    KLUNORTREDI_ENTRY_POINTS(CHECK_SYMBOL)
    EXPECT_EQ(checked, 59U);
}

TEST(EntryPointList, NamesEveryCachedPointerAfterItsMember) {
    const auto check = [](std::string member, std::string_view pointer) {
        member.front() = static_cast<char>(std::tolower(member.front()));
        EXPECT_EQ(pointer, member);
    };
#define CHECK_POINTER(reach, qualifier, result, member, pointer, ...) check(#member, #pointer);
    KLUNORTREDI_ENTRY_POINTS(CHECK_POINTER)
}

TEST(EntryPointList, HasThreeMembersThatAreNotConst) {
    std::vector<std::string> mutables;
#define COLLECT_CONST(member)
#define COLLECT_MUTABLE(member) mutables.emplace_back(#member);
#define COLLECT(reach, qualifier, result, member, ...) COLLECT_##qualifier(member)
    KLUNORTREDI_ENTRY_POINTS(COLLECT)
    EXPECT_THAT(mutables,
                testing::UnorderedElementsAre("CertComparePublicKeyInfo", "CryptHashCertificate", "FormatMessageW"));
}

} // namespace
} // namespace wincrypt_binding
