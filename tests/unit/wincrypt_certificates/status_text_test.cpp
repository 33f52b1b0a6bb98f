// Names of the error bits of a chain, in their order of importance.

#include "verifier_fixture.hpp"

#include <array>
#include <cstdint>

namespace wincrypt_certificates {
namespace {

struct Bit {
    const char* name;
    long value;
};

/// The most important one first.
constexpr std::array bits{
    Bit{"CERT_TRUST_IS_REVOKED", 0x00000004},
    Bit{"CERT_TRUST_IS_NOT_TIME_VALID", 0x00000001},
    Bit{"CERT_TRUST_IS_NOT_VALID_FOR_USAGE", 0x00000010},
    Bit{"CERT_TRUST_IS_NOT_SIGNATURE_VALID", 0x00000008},
    Bit{"CERT_TRUST_IS_UNTRUSTED_ROOT", 0x00000020},
    Bit{"CERT_TRUST_REVOCATION_STATUS_UNKNOWN", 0x00000040},
    Bit{"CERT_TRUST_IS_PARTIAL_CHAIN", 0x00010000},
    Bit{"CERT_TRUST_IS_CYCLIC", 0x00000080},
    Bit{"CERT_TRUST_INVALID_EXTENSION", 0x00000100},
    Bit{"CERT_TRUST_INVALID_POLICY_CONSTRAINTS", 0x00000200},
    Bit{"CERT_TRUST_INVALID_BASIC_CONSTRAINTS", 0x00000400},
    Bit{"CERT_TRUST_INVALID_NAME_CONSTRAINTS", 0x00000800},
    Bit{"CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT", 0x00001000},
    Bit{"CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT", 0x00002000},
    Bit{"CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT", 0x00004000},
    Bit{"CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT", 0x00008000},
    Bit{"CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY", 0x02000000},
    Bit{"CERT_TRUST_IS_EXPLICIT_DISTRUST", 0x04000000},
    Bit{"CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT", 0x08000000},
    Bit{"CERT_TRUST_CTL_IS_NOT_TIME_VALID", 0x00020000},
    Bit{"CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID", 0x00040000},
    Bit{"CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE", 0x00080000},
};
static_assert(bits.size() == 22);

class StatusTextTest : public VerifierFixture {
protected:
    [[nodiscard]] std::string text(long status) { return verifier().statusString(status); }

    static long allFrom(std::size_t first) {
        long status = 0;
        for (std::size_t i = first; i < bits.size(); ++i) {
            status |= bits.at(i).value;
        }
        return status;
    }
};

TEST_F(StatusTextTest, NamesEachBitThatStandsAlone) {
    for (const auto& bit : bits) {
        EXPECT_EQ(text(bit.value), bit.name);
    }
}

TEST_F(StatusTextTest, NamesTheMoreImportantOfEachPair) {
    for (std::size_t first = 0; first < bits.size(); ++first) {
        for (std::size_t second = first + 1; second < bits.size(); ++second) {
            EXPECT_EQ(text(bits.at(first).value | bits.at(second).value), bits.at(first).name) << bits.at(second).name;
        }
    }
}

TEST_F(StatusTextTest, NamesOneBitHoweverManyFollow) {
    for (std::size_t first = 0; first < bits.size(); ++first) {
        EXPECT_EQ(text(allFrom(first)), bits.at(first).name);
    }
}

TEST_F(StatusTextTest, PutsRevocationBeforeAnUntrustedRoot) {
    EXPECT_EQ(text(0x24), "CERT_TRUST_IS_REVOKED");
}

TEST_F(StatusTextTest, PutsTheValidityPeriodBeforeAPartialChain) {
    EXPECT_EQ(text(0x10001), "CERT_TRUST_IS_NOT_TIME_VALID");
}

TEST_F(StatusTextTest, IsEmptyWithoutBits) {
    EXPECT_EQ(text(0), "");
}

TEST_F(StatusTextTest, IsEmptyForEachBitOutsideTheTable) {
    const long known = allFrom(0);
    for (unsigned position = 0; position < 64; ++position) {
        const long bit = static_cast<long>(std::uint64_t{1} << position);
        if ((known & bit) == 0) {
            EXPECT_EQ(text(bit), "") << "bit " << position;
        }
    }
    EXPECT_EQ(text(~known), "") << "all of them";
}

TEST_F(StatusTextTest, PassesOverBitsOutsideTheTable) {
    EXPECT_EQ(text(~allFrom(0) | 0x00080000), "CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE");
    EXPECT_EQ(text(static_cast<std::int32_t>(0x80000020)), "CERT_TRUST_IS_UNTRUSTED_ROOT") << "a negative number";
}

TEST_F(StatusTextTest, IsNoMatterOfTheKeptStatus) {
    EXPECT_EQ(text(0x4), "CERT_TRUST_IS_REVOKED");
    EXPECT_EQ(text(0x4), "CERT_TRUST_IS_REVOKED") << "the same question again";
    EXPECT_TRUE(functions().empty()) << "the service is not asked";
    EXPECT_TRUE(log().empty());
}

} // namespace
} // namespace wincrypt_certificates
