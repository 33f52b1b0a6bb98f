// Containers, the keys and certificates in them and their deletion, with each call of the service failing in turn.
#include "fault_fixture.hpp"

#include "orvik/plugin/crypto/i_public_key.hpp"

#include <algorithm>

namespace wincrypt_keys {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Names = std::vector<std::wstring>;

constexpr DWORD cancelled = 1223;

class ContainerFault : public FaultWalkTest {
protected:
    /// The usual arrangement; the log tells of one run only.
    Arrangement freshLog() {
        return [this] {
            arrange();
            clearLog();
        };
    }
};

TEST_F(ContainerFault, Containers) {
    const Names one{L"/keys/box"};
    const Names both{L"/keys/box", L"/other/box"};
    // Acquisition, size, the first name, the next, the end, release.
    const std::vector<Names> byCall{{}, {}, {}, one, both, both};
    expectAnswers(
        "Provider::containers", [] { return provider().containers(); }, byCall, both);
    expectAnswers(
        "Provider::containers, filtered", [] { return Provider::containers(provider(), L"box"); }, byCall, both);
}

TEST_F(ContainerFault, PublicKeyOfAContainer) {
    using Read = std::pair<bool, std::vector<std::string>>; // whether a key came out, and the warnings beside it
    const auto answer = [&](const auto& publicKey) {
        return [&, publicKey] {
            const bool found = publicKey() != nullptr;
            return Read{found, logTexts(Severity::warning)};
        };
    };
    const auto ofTheStatic = answer([] { return Provider::publicKey(box()); });
    const auto ofTheMember = answer([] { return box().publicKey(); });

    const std::string name = "\"" + narrow(embeddedName) + "\"";
    const Read reopened{true, {"wincrypt: acquire context failed, provider: " + name + ", reason: 2148073494"}};
    const Read unexported{
        false, {"wincrypt: get public key for provider failed, provider: " + name + " error: CryptoError: 2148073486"}};
    const Read dismissed{false, {"wincrypt: get provider's public key failed - user cancelled: \"/keys/box\""}};
    const Read whole{true, {}};
    // Acquisition, size, key, release.
    const std::vector<Read> failing{reopened, unexported, unexported, whole};
    expectAnswers("Provider::publicKey(provider)", ofTheStatic, failing, whole, freshLog());
    expectAnswers("Provider::publicKey()", ofTheMember, failing, whole, freshLog());
    expectAnswers("Provider::publicKey(), cancelled", ofTheMember, {reopened, dismissed, dismissed, whole}, whole,
                  freshLog(), cancelled);
}

TEST_F(ContainerFault, PublicKeyWhoseExportIsCancelled) {
    bool found = false;
    EXPECT_EQ(walkFaults({"Provider::publicKey(provider), cancelled", arrange,
                          [&] {
                              found = false;
                              found = Provider::publicKey(box()) != nullptr;
                          },
                          [&](const FaultOutcome& outcome) {
                              const bool exporting = outcome.function == "CryptExportPublicKeyInfo";
                              EXPECT_EQ(ending(outcome),
                                        exporting ? "ApplicationException 20003 at provider, publicKey" : "");
                              EXPECT_EQ(found, !exporting);
                          },
                          cancelled}),
              4U);
    EXPECT_TRUE(found);
}

TEST_F(ContainerFault, ContainerOfAKey) {
    const auto wanted = Certificate(der(gostCertificate)).publicKey();
    const boost::optional<std::wstring> none;
    const boost::optional<std::wstring> second(L"/other/box");
    // The list: acquisition, size, the names, the end, release. Then the containers: acquisition, size, key, release,
    // comparison. The first holds another key.
    expectAnswers(
        "Provider::container(key)", [&] { return provider().container(*wanted); },
        {none, none, none, none, second, second, second, second, second, second, second, second, none, none, second,
         none},
        second,
        [&] {
            arrange();
            installed().containers[1].publicKey = {wanted->algObjId(), wanted->algParams(), wanted->key()};
        });
}

// ---- certificates

/// What a failure in reading a container's certificate does.
enum class Harm { none, loggedAway, silentlyAway };

/// A container is opened, asked which key it holds, that key is opened, its certificate is read in two calls and
/// decoded. Whatever fails afterwards leaves the certificate; one that is not there to read is no failure.
Harm harmToACertificate(const FaultOutcome& outcome) {
    switch (stepsSince("CryptAcquireContextW", outcome)) {
    case 0: // the container
    case 3: // its key
    case 7: // the decoding
        return Harm::loggedAway;
    case 4:
    case 5: // size and octets of the certificate
        return Harm::silentlyAway;
    default:
        return Harm::none;
    }
}

/// The calls that list two containers.
constexpr std::size_t listing = 6;

class CertificateFault : public ContainerFault {
protected:
    /// The records of certificates that were not read.
    [[nodiscard]] std::vector<std::string> unread() const {
        auto texts = logTexts(Severity::warning);
        std::erase_if(texts,
                      [](const std::string& text) { return !text.starts_with("wincrypt: get provider certif"); });
        return texts;
    }

    static std::string unreadInAList() {
        return "wincrypt: get provider certificates failed, provider: \"" + narrow(embeddedName) + "\", error: ";
    }

    void expectUnread(bool logged, const std::string& beginning) const {
        if (logged) {
            EXPECT_THAT(unread(), ElementsAre(StartsWith(beginning)));
        } else {
            EXPECT_THAT(unread(), IsEmpty());
        }
    }
};

TEST_F(CertificateFault, InAllContainers) {
    std::size_t found = 0;
    EXPECT_GT(walkFaults({"Provider::certificates", freshLog(), [&] { found = provider().certificates().size(); },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              if (outcome.index <= listing) {
                                  const std::vector<std::size_t> listed{0, 0, 0, 1, 2, 2};
                                  EXPECT_EQ(found, listed[outcome.index - 1]);
                                  expectUnread(false, "");
                              } else {
                                  const auto harm = harmToACertificate(outcome);
                                  EXPECT_EQ(found, harm == Harm::none ? 2U : 1U) << "the other one is read";
                                  expectUnread(harm == Harm::loggedAway, unreadInAList());
                              }
                          }}),
              listing + 40U);
    EXPECT_EQ(found, 2U);
}

TEST_F(CertificateFault, InOneContainer) {
    bool found = false;
    EXPECT_GT(walkFaults({"Provider::certificate(container)", freshLog(),
                          [&] { found = provider().certificate(std::wstring(L"/keys/box")) != nullptr; },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              const auto harm = harmToACertificate(outcome);
                              EXPECT_EQ(found, harm == Harm::none);
                              expectUnread(harm == Harm::loggedAway,
                                           "wincrypt: get provider certificate failed, container: \"/keys/box\", ");
                          }}),
              20U);
    EXPECT_TRUE(found);
}

TEST_F(CertificateFault, LikeAnother) {
    bool found = false;
    const auto scenario = [&] {
        found = false;
        found = provider().certificate(boost::make_shared<Certificate>(der(gostCertificate))) != nullptr;
    };
    // Containers are read until one has the serial number.
    const auto secondOpened = [] {
        const auto calls = service().trace();
        return std::any_of(calls.begin(), calls.end(), [](const std::string& call) {
            return call.starts_with("CryptAcquireContextW(&, \"/other/box\",");
        });
    };
    EXPECT_GT(walkFaults({"Provider::certificate(like)", freshLog(), scenario,
                          [&](const FaultOutcome& outcome) {
                              if (outcome.index == 1) { // the certificate to look for
                                  EXPECT_EQ(ending(outcome), system(outcome.code, "certificate, Certificate"));
                                  return;
                              }
                              EXPECT_EQ(ending(outcome), "");
                              if (outcome.index <= 1 + listing) {
                                  EXPECT_EQ(found, outcome.index > 4) << "the first name is enough";
                                  expectUnread(false, "");
                                  return;
                              }
                              const auto harm = harmToACertificate(outcome);
                              EXPECT_TRUE(found);
                              EXPECT_EQ(secondOpened(), harm != Harm::none) << "it stands in";
                              expectUnread(harm == Harm::loggedAway, unreadInAList());
                          }}),
              listing + 20U);
    EXPECT_TRUE(found);
    EXPECT_FALSE(secondOpened());
}

// ---- deletion

TEST_F(ContainerFault, Deletion) {
    // A provider outside CryptoPro's family: no second name is tried for the container.
    const auto other = [] {
        arrange();
        installed().name = narrow(vipNetName);
    };
    EXPECT_EQ(walkFaults({"Provider::deleteContainer", other,
                          [] { Provider(80UL, vipNetName).deleteContainer(L"/keys/box", "test"); },
                          [](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), system(outcome.code, "provider, deleteContainer"));
                              EXPECT_EQ(installed().containers.size(), 2U);
                          }}),
              1U);
    EXPECT_EQ(installed().containers.size(), 1U);
}

TEST_F(ContainerFault, DeletionOfSeveral) {
    using Left = std::pair<Names, std::ptrdiff_t>; // containers, and the failures that were logged
    const std::string failure = "wincrypt: delete container failed, provider: \"" + narrow(embeddedName) + "\"";
    const Names both{L"/keys/box", L"/other/box"};
    expectAnswers(
        "Provider::deleteContainers",
        [&] {
            Provider::deleteContainers(provider(), L"box");
            Left left;
            for (const auto& container : installed().containers) {
                left.first.push_back(container.name);
            }
            const auto warnings = logTexts(Severity::warning);
            left.second = std::count(warnings.begin(), warnings.end(), failure);
            return left;
        },
        {{both, 0},
         {both, 0},
         {both, 0},
         {{L"/other/box"}, 0},
         {{}, 0},
         {{}, 0}, // the list: what it names is deleted
         {{L"/keys/box"}, 1},
         {{L"/other/box"}, 1}},
        {{}, 0}, freshLog());
}

} // namespace
} // namespace wincrypt_keys
