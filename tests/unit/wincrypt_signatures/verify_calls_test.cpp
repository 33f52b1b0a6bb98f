// What the check of a message asks the service, call by call, and with which values.

#include "verify_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <array>
#include <cstring>
#include <thread>

namespace wincrypt_signatures {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
namespace tools = orvik::plugin::wincrypt::tools;
using Calls = std::vector<std::string>;

/// The calls between the last chunk of the signature and the first of the content: the certificates are counted, and
/// the one that the first signer names is taken from those of the message.
const Calls signerCalls{
    "CryptMsgGetParam(message1, 11, 0, pointer, &4)",
    "CertOpenStore(1, 0x10001, 0, 0, message1)",
    "CryptMsgGetParam(message1, 7, 0, null, &0)",
    "CryptMsgGetParam(message1, 7, 0, pointer, &SIZE)",
    "CertGetSubjectCertificateFromStore(store1, 0x10001, pointer)",
    "CertCloseStore(store1, 0)",
};
const Calls lastCalls{"CryptMsgControl(message1, 0, 1, pointer)", "CertFreeCertificateContext(certificate3)",
                      "CryptMsgClose(message1)"};

Calls joined(std::initializer_list<Calls> parts) {
    Calls all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/// The calls made, the size of the signer's name left open.
Calls trace() {
    auto calls = service().trace();
    for (auto& call : calls) {
        const auto size = call.find("7, 0, pointer, &");
        if (call.starts_with("CryptMsgGetParam") && size != std::string::npos) {
            call.replace(size + std::strlen("7, 0, pointer, &"), std::string::npos, "SIZE)");
        }
    }
    return calls;
}

std::string fed(std::size_t size, bool final) {
    return "CryptMsgUpdate(message1, pointer, " + std::to_string(size) + (final ? ", 1)" : ", 0)");
}

using VerifyCallsTest = VerifyFixture;

TEST_F(VerifyCallsTest, OfAnAttachedMessage) {
    EXPECT_TRUE(verify());
    EXPECT_THAT(
        trace(),
        ElementsAreArray(
            joined({{"CryptMsgOpenToDecode(0x10001, 0, 0, 0, null, pointer)", fed(9, true)}, signerCalls, lastCalls})));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(VerifyCallsTest, OfADetachedMessageFeedTheContentAfterTheSignerIsFound) {
    EXPECT_TRUE(verifyDetached("content"));
    EXPECT_THAT(trace(),
                ElementsAreArray(joined({{"CryptMsgOpenToDecode(0x10001, 4, 0, 0, null, pointer)", fed(9, true)},
                                         signerCalls,
                                         {fed(7, true)},
                                         lastCalls})));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(VerifyCallsTest, WithoutHooksAreThoseOfTheFormWithout) {
    std::istringstream signature("signature");
    EXPECT_TRUE(tools::verify(signature, boost::none));
    const auto plain = trace();
    arrangeService();
    arrangeMessage();
    EXPECT_TRUE(verify("signature", {}));
    EXPECT_EQ(trace().size(), plain.size());
}

TEST_F(VerifyCallsTest, FeedSignatureAndContentInChunksOf4096AndMarkTheLast) {
    EXPECT_TRUE(verifyDetached(std::string(4096, 'c'), std::string(8193, 's')));
    Calls updates;
    for (const auto& call : trace()) {
        if (call.starts_with("CryptMsgUpdate")) {
            updates.push_back(call);
        }
    }
    EXPECT_THAT(updates, ElementsAre(fed(4096, false), fed(4096, false), fed(1, true), fed(4096, true)));
}

TEST_F(VerifyCallsTest, FeedNothingOfAnEmptyContent) {
    EXPECT_TRUE(verifyDetached(""));
    EXPECT_EQ(service().count("CryptMsgUpdate"), 1U) << "the signature's";
}

TEST_F(VerifyCallsTest, OfAnEmptySignatureGoOnToItsCertificates) {
    service().message.certificates.clear();
    EXPECT_FALSE(verify(""));
    EXPECT_THAT(functions(), ElementsAre("CryptMsgOpenToDecode", "CryptMsgGetParam", "CryptMsgClose"));
}

TEST_F(VerifyCallsTest, DescribeAStreamOfUnknownLength) {
    DWORD length = 0;
    service().on.CryptMsgOpenToDecode = [&](DWORD encoding, DWORD flags, DWORD type, unsigned long provider,
                                            CERT_INFO* recipient, CMSG_STREAM_INFO* stream) {
        length = stream->cbContent;
        return Defaults::CryptMsgOpenToDecode(encoding, flags, type, provider, recipient, stream);
    };
    EXPECT_TRUE(verify());
    EXPECT_EQ(length, 0xFFFFFFFFU);
}

TEST_F(VerifyCallsTest, NameTheSignersCertificateToTheCheck) {
    std::string serial;
    service().on.CryptMsgControl = [&](void* message, DWORD flags, DWORD type, const void* parameter) {
        const auto& number = static_cast<const CERT_INFO*>(parameter)->SerialNumber;
        serial.assign(reinterpret_cast<const char*>(number.pbData), number.cbData);
        return Defaults::CryptMsgControl(message, flags, type, parameter);
    };
    EXPECT_TRUE(verify());
    EXPECT_EQ(serial, "\x45\x23\x01");
}

TEST_F(VerifyCallsTest, JudgeTheFirstSignerAlone) {
    service().message.signers = {der(signerCertificate), der(plainCertificate)};
    EXPECT_TRUE(verify());
    EXPECT_EQ(service().count("CryptMsgControl"), 1U);
    service().message.signers = {der(enciphermentCertificate), der(signerCertificate)};
    EXPECT_FALSE(verify()) << "the certificate of the first one is missing";
    EXPECT_EQ(service().count("CryptMsgControl"), 1U);
}

TEST_F(VerifyCallsTest, LookAtNoChainAndNoTime) {
    EXPECT_TRUE(verify());
    for (const char* call : {"CertGetCertificateChain", "CertVerifyCertificateChainPolicy", "CertOpenSystemStore",
                             "CertFindCertificateInStore", "GetSystemTime"}) {
        EXPECT_EQ(service().count(call), 0U) << call;
    }
}

// ---- what the stream that the service writes to says

class DecodedContentTest : public VerifyFixture {
protected:
    /// Lets the service hand out those pieces as it opens the message, and keeps what the stream says to each.
    std::vector<BOOL> answersTo(const std::vector<std::string>& pieces, const tools::VerifyHooks& hooks = {}) {
        std::vector<BOOL> answers;
        service().on.CryptMsgOpenToDecode = [&](DWORD encoding, DWORD flags, DWORD type, unsigned long provider,
                                                CERT_INFO* recipient, CMSG_STREAM_INFO* stream) {
            for (auto piece : pieces) {
                answers.push_back(stream->pfnStreamOutput(stream->pvArg, reinterpret_cast<BYTE*>(piece.data()),
                                                          static_cast<DWORD>(piece.size()), 0));
            }
            return Defaults::CryptMsgOpenToDecode(encoding, flags, type, provider, recipient, stream);
        };
        static_cast<void>(verify("signature", hooks));
        return answers;
    }
};

TEST_F(DecodedContentTest, IsTakenInPiecesOfAnySize) {
    EXPECT_THAT(answersTo({"a", "", std::string(100000, 'x')}), ElementsAre(1, 1, 1));
}

TEST_F(DecodedContentTest, GoesToTheHookAsItComes) {
    std::string taken;
    tools::VerifyHooks hooks;
    hooks.content = [&](const unsigned char* data, std::size_t size) {
        taken.append(reinterpret_cast<const char*>(data), size);
        return true;
    };
    EXPECT_THAT(answersTo({"one ", "two"}, hooks), ElementsAre(1, 1));
    EXPECT_EQ(taken, "one twosignature");
}

TEST_F(DecodedContentTest, StopsWhenTheHookRefuses) {
    tools::VerifyHooks hooks;
    int pieces = 0;
    hooks.content = [&](const unsigned char*, std::size_t) { return ++pieces != 2; };
    EXPECT_THAT(answersTo({"one", "two", "three"}, hooks), ElementsAre(1, 0, 0));
    EXPECT_EQ(pieces, 2) << "nothing is handed over after a refusal";
}

TEST_F(DecodedContentTest, StopsWhenTheHookThrows) {
    tools::VerifyHooks hooks;
    hooks.content = [](const unsigned char*, std::size_t) -> bool { throw std::runtime_error("disk full"); };
    EXPECT_THAT(answersTo({"one", "two"}, hooks), ElementsAre(0, 0));
}

// ---- several at once

TEST_F(VerifyCallsTest, OfSeveralThreadsDoNotMeet) {
    EXPECT_TRUE(verify()) << "the service is bound before";
    constexpr int rounds = 50;
    std::array<int, 4> valid{};
    std::vector<std::thread> threads;
    for (auto& count : valid) {
        threads.emplace_back([&count] {
            for (int round = 0; round < rounds; ++round) {
                count += (round % 2 == 0 ? verify() : verifyDetached("content")) ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(valid, ElementsAre(rounds, rounds, rounds, rounds));
    EXPECT_THAT(log(), IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
