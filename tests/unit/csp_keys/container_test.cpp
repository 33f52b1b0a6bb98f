// Containers through the entry points, and as the administration command uses them.

#include "capi/skipped_entries.hpp"
#include "core/error.hpp"
#include "core/hex.hpp"
#include "crypto/digest.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"
#include "keys/container.hpp"
#include "keys/key_file.hpp"
#include "service.hpp"
#include "support/open_file_limit.hpp"

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

namespace {

/// A file of that name cannot be removed.
std::string keptFile; // NOLINT

} // namespace

/// Takes the place of the C library's function in this program, also for the standard library.
extern "C" __attribute__((visibility("default"))) int unlinkat(int directory, const char* name, int flags) {
    static const auto real = reinterpret_cast<int (*)(int, const char*, int)>(::dlsym(RTLD_NEXT, "unlinkat"));
    if (!keptFile.empty() && std::string_view(name).ends_with(keptFile)) {
        errno = EIO;
        return -1;
    }
    return real(directory, name, flags);
}

namespace csp_keys {

using klunortredi::csp::ApiError;
using klunortredi::csp::Container;
using klunortredi::csp::ContainerId;
using klunortredi::csp::NewContainer;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Containers : public ServiceTest {
protected:
    [[nodiscard]] std::filesystem::path place(const std::string& directory) const {
        return std::filesystem::path(home_.path()) / "containers" / directory;
    }
    [[nodiscard]] std::size_t entries() const {
        const std::filesystem::directory_iterator all(place(""));
        return static_cast<std::size_t>(std::distance(begin(all), end(all)));
    }
    static BOOL remove(DWORD type, const wchar_t* name) {
        unsigned long handle = 99;
        const BOOL result = CryptAcquireContextW(&handle, name, nullptr, type, capi::CRYPT_DELETEKEYSET);
        EXPECT_TRUE(result == 0 || handle == 0);
        return result;
    }
};

template <class Call>
DWORD refusalOf(Call call) {
    try {
        call();
        return capi::ERROR_SUCCESS;
    } catch (const ApiError& e) {
        return e.code();
    }
}

/// The same with so few descriptors left. The exception is looked at afterwards: sanitizers need a descriptor for that.
template <class Call>
DWORD refusalWithDescriptors(rlim_t left, Call call) {
    std::exception_ptr thrown;
    {
        const test_support::OpenFileLimit limit(left);
        try {
            call();
        } catch (const ApiError&) {
            thrown = std::current_exception();
        }
    }
    return refusalOf([&thrown] {
        if (thrown) {
            std::rethrow_exception(thrown);
        }
    });
}

} // namespace

TEST_F(Containers, AreForTheirOwnerAlone) {
    makeContainer(gost, L"c", "1234");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(place(""))) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, entry.is_directory() ? 0700U : 0600U) << entry.path();
    }
}

TEST_F(Containers, KeyOnDiskIsEncryptedWithScryptAndAes) {
    makeContainer(gost, L"c", "1234");
    const Bytes file = bytes(test_support::readFile(place("c.80") / "exchange.1.p8"));
    const auto contains = [&file](std::string_view hex) { return !std::ranges::search(file, fromHex(hex)).empty(); };
    EXPECT_TRUE(contains("06092b06010401da47040b")) << "scrypt, RFC 7914";
    EXPECT_TRUE(contains("060960864801650304012a")) << "AES-256-CBC";
    EXPECT_EQ(klunortredi::csp::decryptKey(file, "1235"), nullptr);
    EXPECT_NE(klunortredi::csp::decryptKey(file, "1234"), nullptr);
}

TEST_F(Containers, AreThereWholeWhenTheirFirstKeyPairIsReported) {
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    EXPECT_FALSE(std::filesystem::exists(place("c.80")));
    unsigned long key = 0;
    ASSERT_TRUE(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key));
    CryptDestroyKey(key);
    EXPECT_EQ(entries(), 1U);
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty());
}

TEST_F(Containers, KeyPairThatCannotBePutInPlaceIsNotReported) {
    Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    std::filesystem::create_directories(place("c.80") / "in the way");
    unsigned long key = 0;
    EXPECT_TRUE(refused(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key), capi::NTE_EXISTS));
    EXPECT_TRUE(refused(CryptGetUserKey(making.get(), capi::AT_KEYEXCHANGE, &key), capi::NTE_NO_KEY));
    std::filesystem::remove_all(place("c.80"));
    ASSERT_TRUE(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key)) << "with the cause gone, the same call works";
    CryptDestroyKey(key);
    making.release();
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty());
    EXPECT_EQ(entries(), 1U);
}

TEST_F(Containers, WithoutAKeyLeaveNothing) {
    Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    ASSERT_TRUE(setPin(making.get(), "1234", capi::PIN_SET_NEW));
    making.release();
    EXPECT_EQ(entries(), 0U);
    makeContainer(gost, L"c", "");
}

TEST_F(Containers, NameIsTakenOnce) {
    unsigned long handle = 0;
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    EXPECT_TRUE(refused(CryptAcquireContextW(&handle, L"c", nullptr, gost, capi::CRYPT_NEWKEYSET), capi::NTE_EXISTS));
    unsigned long key = 0;
    ASSERT_TRUE(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key));
    CryptDestroyKey(key);
    EXPECT_TRUE(refused(CryptAcquireContextW(&handle, L"c", nullptr, gost, capi::CRYPT_NEWKEYSET), capi::NTE_EXISTS));
    makeContainer(81, L"c", "");
}

TEST_F(Containers, BeingMadeCanBeOpenedByName) {
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    unsigned long key = 0;
    ASSERT_TRUE(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key));
    CryptDestroyKey(key);
    const Context opened(gost, L"c", capi::CRYPT_SILENT);
    PublicKeyInfo one(making.get(), capi::AT_KEYEXCHANGE);
    PublicKeyInfo other(opened.get(), capi::AT_KEYEXCHANGE);
    EXPECT_EQ(
        std::string_view(reinterpret_cast<const char*>(one.get()->PublicKey.pbData), one.get()->PublicKey.cbData),
        std::string_view(reinterpret_cast<const char*>(other.get()->PublicKey.pbData), other.get()->PublicKey.cbData));
}

TEST_F(Containers, CyrillicNamesWorkOnEveryPath) {
    for (const DWORD type : {80U, 81U, 75U, 24U}) {
        makeContainer(type, cyrillicWide, "");
        const Context context(type, cyrillicWide, 0);
        const bool narrow = type == 80 || type == 81;
        const std::string in1251 = "\xCA\xEB\xFE\xF7 \xC8\xE2\xE0\xED\xEE\xE2\xEE\xE9 \xB9"
                                   "5";
        EXPECT_EQ(provText(context.get(), capi::PP_CONTAINER), narrow ? in1251 : cyrillic);
        const std::string unique = provText(context.get(), capi::PP_UNIQUE_CONTAINER);
        EXPECT_EQ(unique, "KLUNORTREDI/" + (narrow ? in1251 : std::string(cyrillic)));
        for (const wchar_t* form : {L"KLUNORTREDI/Ключ Ивановой №5", L"\\\\.\\HDIMAGE\\Ключ Ивановой №5"}) {
            const Context again(type, form, 0);
            EXPECT_EQ(provText(again.get(), capi::PP_UNIQUE_CONTAINER), unique);
        }
        EXPECT_EQ(containerNames(type, capi::CRYPT_FQCN), std::vector{"KLUNORTREDI/" + std::string(cyrillic)});
        EXPECT_TRUE(remove(type, L"KLUNORTREDI/Ключ Ивановой №5"));
        EXPECT_TRUE(containerNames(type, 0).empty());
    }
}

TEST_F(Containers, DeletionLeavesNothingAndFreesTheName) {
    makeContainer(gost, L"c", "1234");
    ASSERT_TRUE(remove(gost, L"c"));
    EXPECT_EQ(entries(), 0U);
    EXPECT_TRUE(refused(remove(gost, L"c"), capi::NTE_BAD_KEYSET));
    makeContainer(gost, L"c", "");
}

TEST_F(Containers, DamageIsToldApartFromAWrongPinAndCostsNoAttempt) {
    makeContainer(gost, L"c", "1234");
    const auto file = place("c.80") / "exchange.1.p8";
    std::string contents = test_support::readFile(file);
    contents[contents.size() - 1] = static_cast<char>(contents.back() ^ 1);
    std::ofstream(file, std::ios::binary) << contents;
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(refused(setPin(context.get(), "1234", capi::PIN_VERIFY), capi::NTE_KEYSET_ENTRY_BAD));
    EXPECT_EQ(provNumber(context.get(), capi::PP_PIN_TRIES_REMAINING), klunortredi::csp::pinTryLimit);
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::ElementsAre("exchange.1.p8"));
}

TEST_F(Containers, PublicKeyOfAnotherPairIsDamageThatCostsNoTry) {
    makeContainer(gost, L"c", "1234");
    makeContainer(gost, L"other", "1234");
    const auto publicKeyOf = [](const std::string& text) {
        const auto at = text.find('"', text.find(R"("publicKeyInfo")") + std::string(R"("publicKeyInfo")").size());
        return std::pair(at, text.find('"', at + 1) - at);
    };
    const auto file = place("c.80") / "container.json";
    std::string text = test_support::readFile(file);
    const std::string other = test_support::readFile(place("other.80") / "container.json");
    const auto [at, length] = publicKeyOf(text);
    const auto [otherAt, otherLength] = publicKeyOf(other);
    ASSERT_EQ(length, otherLength);
    std::ofstream(file) << text.replace(at, length, other, otherAt, otherLength);
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(refused(setPin(context.get(), "1234", capi::PIN_VERIFY), capi::NTE_KEYSET_ENTRY_BAD));
    EXPECT_EQ(provNumber(context.get(), capi::PP_PIN_TRIES_REMAINING), klunortredi::csp::pinTryLimit);
}

TEST_F(Containers, ChangeWhoseDirectoryCannotBeOpenedIsNotMade) {
    makeContainer(gost, L"c", "old");
    Container container = Container::open({"c", gost});
    const auto keys = container.unlock("old");
    {
        const test_support::OpenFileLimit enoughForAllButTheDirectory(2); // the lock, and one file at a time
        EXPECT_EQ(refusalOf([&] { container.changePin(keys, "new"); }), capi::ERROR_WRITE_FAULT);
    }
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty());
    EXPECT_EQ(Container::open({"c", gost}).unlock("old").size(), 1U);
}

TEST_F(Containers, DamagedDescriptionIsReportedAndCanBeDeleted) {
    for (const char* text : {"", "{", "[]", "{\"format\":2}", "{\"format\":1,\"name\":\"c\"}"}) {
        makeContainer(gost, L"c", "");
        std::ofstream(place("c.80") / "container.json") << text;
        unsigned long handle = 0;
        EXPECT_TRUE(refused(CryptAcquireContextW(&handle, L"c", nullptr, gost, 0), capi::NTE_KEYSET_ENTRY_BAD)) << text;
        EXPECT_TRUE(remove(gost, L"c"));
    }
}

TEST_F(Containers, DescriptionWithOtherThanHexadecimalDigitsIsDamaged) {
    makeContainer(gost, L"c", "");
    const auto file = place("c.80") / "container.json";
    std::string text = test_support::readFile(file);
    const auto digit = text.find(R"("publicKeyInfo")") + std::string(R"("publicKeyInfo":")").size() + 1;
    text[digit] = 'g';
    std::ofstream(file) << text;
    unsigned long handle = 0;
    EXPECT_TRUE(refused(CryptAcquireContextW(&handle, L"c", nullptr, gost, 0), capi::NTE_KEYSET_ENTRY_BAD)) << text;
}

TEST_F(Containers, CopyUnderAnotherNameIsNoContainer) {
    makeContainer(gost, L"c", "");
    std::filesystem::copy(place("c.80"), place("d.80"));
    unsigned long handle = 0;
    EXPECT_TRUE(refused(CryptAcquireContextW(&handle, L"d", nullptr, gost, 0), capi::NTE_KEYSET_ENTRY_BAD));
}

TEST_F(Containers, KeyPairOfBothSpecsStandBesideEachOther) {
    makeContainer(gost, L"c", "1234", capi::AT_SIGNATURE);
    const Context context(gost, L"c", 0);
    unsigned long key = 0;
    EXPECT_TRUE(
        refused(CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &key), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
    ASSERT_TRUE(CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &key));
    CryptDestroyKey(key);
    EXPECT_TRUE(refused(CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &key), capi::NTE_EXISTS))
        << "a key pair is never replaced";
    const Context again(gost, L"c", 0);
    ASSERT_TRUE(setPin(again.get(), "1234", capi::PIN_VERIFY));
    const Hash hash(again.get(), capi::CALG_GR3411_2012_256);
    EXPECT_EQ(sign(hash.get(), capi::AT_KEYEXCHANGE).size(), 64U);
    EXPECT_EQ(sign(hash.get(), capi::AT_SIGNATURE).size(), 64U);
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty());
}

TEST_F(Containers, AreMadeFromAKeyThatIsAlreadyThere) {
    const auto& algorithm = *klunortredi::csp::findKey("1.2.643.7.1.1.1.1");
    const auto pair = klunortredi::csp::generateGostKey(
        algorithm, *klunortredi::csp::findGostParamSet(algorithm, "1.2.643.7.1.2.1.1.1"));
    const ContainerId id{"imported", gost};
    {
        NewContainer made(id);
        made.container().addKey(capi::AT_KEYEXCHANGE, pair.get(), true, "1234");
        EXPECT_THAT(made.commit().damagedFiles(), testing::IsEmpty());
    }
    Container container = Container::open(id);
    EXPECT_TRUE(container.key(capi::AT_KEYEXCHANGE).exportable);
    EXPECT_EQ(refusalOf([&] { container.unlock("4321"); }), capi::SCARD_W_WRONG_CHV);
    EXPECT_EQ(container.triesRemaining(), klunortredi::csp::pinTryLimit - 1);
    container.resetTries();
    EXPECT_EQ(container.triesRemaining(), klunortredi::csp::pinTryLimit);
    auto keys = container.unlock("1234");
    EXPECT_EQ(EVP_PKEY_eq(keys.at(capi::AT_KEYEXCHANGE).get(), pair.get()), 1);
    container.changePin(keys, "");
    EXPECT_FALSE(container.wantsPin());
    EXPECT_EQ(Container::open(id).unlock("").size(), 1U);
}

TEST_F(Containers, FailedCommitLeavesNothing) {
    EXPECT_EQ(refusalOf([] { NewContainer({"c", gost}).commit(); }), capi::NTE_NO_KEY);
    EXPECT_EQ(entries(), 0U);
}

TEST_F(Containers, TakenBackByWhoeverMadeThemAndNobodyElses) {
    const auto pair = klunortredi::csp::generateRsaKey(2048);
    const ContainerId id{"c", capi::PROV_RSA_AES};
    NewContainer made(id);
    EXPECT_EQ(refusalOf([&] { made.undo(); }), capi::NTE_BAD_KEYSET) << "nothing was put in place";
    made.container().addKey(capi::AT_KEYEXCHANGE, pair.get(), true, "");
    made.commit();
    std::filesystem::rename(place("c.24"), place("kept"));
    {
        NewContainer other(id); // of the same key, as a second import of the same file
        other.container().addKey(capi::AT_KEYEXCHANGE, pair.get(), true, "");
        other.commit();
    }
    EXPECT_EQ(refusalOf([&] { made.undo(); }), capi::NTE_BAD_KEYSET);
    EXPECT_THAT(Container::open(id).damagedFiles(), testing::IsEmpty()) << "another process made it";
    std::filesystem::remove_all(place("c.24"));
    std::filesystem::rename(place("kept"), place("c.24"));
    made.undo();
    EXPECT_EQ(refusalOf([&] { Container::open(id); }), capi::NTE_BAD_KEYSET);
}

TEST_F(Containers, EditedAttributesAreDamageThatCostsNoTry) {
    makeContainer(gost, L"c", "1234");
    const auto file = place("c.80") / "container.json";
    const std::string genuine = test_support::readFile(file);
    const std::vector<std::pair<std::string, std::string>> edits{{"\"exportable\": false", "\"exportable\": true"},
                                                                 {"\"pin\": true", "\"pin\": false"},
                                                                 {"\"spec\": 1", "\"spec\": 2"}};
    for (const auto& [from, to] : edits) {
        std::string text = genuine;
        ASSERT_NE(text.find(from), std::string::npos) << from;
        std::ofstream(file) << text.replace(text.find(from), from.size(), to);
        std::filesystem::copy_file(place("c.80") / "exchange.1.p8", place("c.80") / "signature.1.p8",
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(refusalOf([] { Container::open({"c", gost}).unlock("1234"); }), capi::NTE_KEYSET_ENTRY_BAD) << to;
        EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::SizeIs(1)) << to;
    }
    std::ofstream(file) << genuine;
    EXPECT_EQ(Container::open({"c", gost}).triesRemaining(), klunortredi::csp::pinTryLimit);
    EXPECT_EQ(Container::open({"c", gost}).unlock("1234").size(), 1U);
}

namespace {

/// Replaces text of a file, whose SHA-256 stands in the description.
void putKeyFile(const std::filesystem::path& container, ByteView file, std::string description) {
    namespace csp = klunortredi::csp;
    const std::string label = R"("fileSha256": ")";
    const auto at = description.find(label) + label.size();
    description.replace(at, 64, csp::toHex(csp::Digest::of(*csp::findDigest(capi::CALG_SHA_256), file)));
    std::ofstream(container / "exchange.1.p8", std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
    std::ofstream(container / "container.json") << description;
}

std::string madeExportable(std::string description) {
    const std::string no = R"("exportable": false)";
    return description.replace(description.find(no), no.size(), R"("exportable": true)");
}

} // namespace

TEST_F(Containers, EditedAttributesWithAMatchingKeyFileAreNotOpenedByTheRightPin) {
    namespace csp = klunortredi::csp;
    makeContainer(gost, L"c", "1234");
    const std::string description = madeExportable(test_support::readFile(place("c.80") / "container.json"));
    Bytes file = bytes(test_support::readFile(place("c.80") / "exchange.1.p8"));
    const Bytes genuine = csp::bindingOf(file);
    ASSERT_EQ(genuine.size(), 32U);
    const csp::ContainerMeta edited = csp::decodeMeta(bytes(description));
    const Bytes forged = csp::attributeHash(edited, edited.keys.at(0));
    std::ranges::copy(forged, std::ranges::search(file, genuine).begin());
    putKeyFile(place("c.80"), file, description);
    EXPECT_EQ(refusalOf([] { Container::open({"c", gost}).unlock("1234"); }), capi::SCARD_W_WRONG_CHV);
}

TEST_F(Containers, NewOneMadeToLookLikeAnOldOneIsNotOpenedByTheRightPin) {
    namespace csp = klunortredi::csp;
    makeContainer(gost, L"c", "1234");
    const std::string description = madeExportable(test_support::readFile(place("c.80") / "container.json"));
    Bytes file = bytes(test_support::readFile(place("c.80") / "exchange.1.p8"));
    const Bytes genuine = csp::bindingOf(file);
    const auto at = static_cast<std::size_t>(std::ranges::search(file, genuine).begin() - file.begin());
    file.erase(file.begin() + static_cast<std::ptrdiff_t>(at), file.begin() + static_cast<std::ptrdiff_t>(at + 32));
    // SEQUENCE (82 xx xx) { SEQUENCE { OID, SEQUENCE { SEQUENCE { OID, SEQUENCE { OCTET STRING of 48 ...
    file.at(at - 17) = 16;
    const auto shorten = [&file](std::size_t length) {
        file.at(length) = static_cast<std::uint8_t>(file.at(length) - 32);
    };
    for (std::size_t i = 1; i < at - 18; ++i) {
        const bool sequence = file.at(i - 1) == 0x30 && file.at(i) >= 32 + 8 && file.at(i) < 0x80;
        if (sequence) {
            shorten(i);
        }
    }
    if (file.at(1) == 0x81) {
        shorten(2);
    }
    ASSERT_TRUE(csp::bindingOf(file).empty()) << "it looks like one of an earlier version";
    putKeyFile(place("c.80"), file, description);
    EXPECT_EQ(refusalOf([] { Container::open({"c", gost}).unlock("1234"); }), capi::SCARD_W_WRONG_CHV);
}

TEST_F(Containers, OfEarlierVersionsOpenAndAreBoundByTheNextChangeOfThePin) {
    namespace csp = klunortredi::csp;
    makeContainer(gost, L"c", "1234");
    const std::string description = test_support::readFile(place("c.80") / "container.json");
    const auto keys = Container::open({"c", gost}).unlock("1234");
    putKeyFile(place("c.80"), csp::encryptKey(keys.at(capi::AT_KEYEXCHANGE).get(), "1234", {}), description);
    Container container = Container::open({"c", gost});
    EXPECT_THAT(container.damagedFiles(), testing::IsEmpty());
    container.changePin(container.unlock("1234"), "new");
    EXPECT_EQ(Container::open({"c", gost}).unlock("new").size(), 1U);
    const auto file = place("c.80") / "container.json";
    const std::string edited = madeExportable(test_support::readFile(file));
    std::ofstream(file) << edited;
    EXPECT_EQ(refusalOf([] { Container::open({"c", gost}).unlock("new"); }), capi::NTE_KEYSET_ENTRY_BAD);
}

TEST_F(Containers, ThatOthersMayWriteAreRefusedWithThePathAndTheRemedy) {
    makeContainer(gost, L"c", "1234");
    ::setenv("KLUNORTREDI_NOTICES", "1", 1);
    const std::vector<std::filesystem::path> paths{home_.path(),
                                                   place("").parent_path(),
                                                   place("c.80"),
                                                   place("c.80") / "container.json",
                                                   place("c.80") / "tries",
                                                   place("c.80") / "exchange.1.p8"};
    for (const auto& path : paths) {
        struct stat before {};
        ASSERT_EQ(::stat(path.c_str(), &before), 0);
        ::chmod(path.c_str(), before.st_mode | S_IWOTH);
        testing::internal::CaptureStderr();
        EXPECT_EQ(refusalOf([] { Container::open({"c", gost}).unlock("1234"); }), capi::ERROR_ACCESS_DENIED) << path;
        const std::string notice = testing::internal::GetCapturedStderr();
        EXPECT_THAT(notice, testing::HasSubstr("other users may write " + path.string())) << path;
        EXPECT_THAT(notice, testing::HasSubstr("chmod go-w")) << path;
        ::chmod(path.c_str(), before.st_mode | S_IWGRP);
        if (before.st_gid == before.st_uid) {
            EXPECT_EQ(refusalOf([] {
                          Container::open({"c", gost}).unlock("1234");
                      }),
                      0U)
                << "a user's own group, " << path;
        }
        ::chmod(path.c_str(), before.st_mode);
    }
    ::unsetenv("KLUNORTREDI_NOTICES");
    EXPECT_EQ(Container::open({"c", gost}).triesRemaining(), klunortredi::csp::pinTryLimit);
}

TEST_F(Containers, OfAnotherUserAreRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    makeContainer(gost, L"c", "");
    for (const auto& path : {std::filesystem::path(home_.path()), place("c.80"), place("c.80") / "container.json"}) {
        ASSERT_EQ(::chown(path.c_str(), 12345, 12345), 0);
        EXPECT_EQ(refusalOf([] { Container::open({"c", gost}); }), capi::ERROR_ACCESS_DENIED) << path;
        ASSERT_EQ(::chown(path.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(Container::open({"c", gost}).unlock("").size(), 1U);
}

TEST_F(Containers, DeletionIsNotReportedWhileAFileStays) {
    makeContainer(gost, L"c", "1234");
    keptFile = "exchange.1.p8";
    EXPECT_TRUE(refused(remove(gost, L"c"), capi::ERROR_WRITE_FAULT));
    EXPECT_EQ(containerNames(gost, 0), std::vector<std::string>{"c"}) << "what is left can be named";
    keptFile.clear();
    EXPECT_TRUE(remove(gost, L"c"));
    EXPECT_EQ(entries(), 0U);
}

TEST_F(Containers, ThatCannotBeReadNowAreNeitherAbsentNorDamaged) {
    makeContainer(gost, L"c", "");
    Container container = Container::open({"c", gost});
    EXPECT_EQ(refusalWithDescriptors(0, [] { klunortredi::csp::listContainers(gost); }),
              capi::ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_EQ(refusalWithDescriptors(0, [] { Container::open({"c", gost}); }), capi::ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_EQ(refusalWithDescriptors(0,
                                     [] {
                                         klunortredi::csp::deleteContainer({"c", gost});
                                     }),
              capi::ERROR_WRITE_FAULT);
    EXPECT_EQ(refusalWithDescriptors(0, [] { NewContainer({"c", gost}); }), capi::ERROR_WRITE_FAULT);
    // The lock, and the description.
    const auto damaged = [&] { EXPECT_THAT(container.damagedFiles(), testing::IsEmpty()); };
    EXPECT_EQ(refusalWithDescriptors(0, damaged), capi::ERROR_WRITE_FAULT);
    EXPECT_EQ(refusalWithDescriptors(1, damaged), capi::ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_THAT(container.damagedFiles(), testing::IsEmpty());
    std::filesystem::rename(place("c.80"), place("aside"));
    std::filesystem::create_symlink("c.80", place("c.80")); // ELOOP
    EXPECT_EQ(refusalOf([] { Container::open({"c", gost}); }), capi::ERROR_READ_FAULT);
}

TEST_F(Containers, WhatDeadProcessesLeftIsSweptAway) {
    std::filesystem::create_directories(place(".new-dead.80"));
    std::filesystem::create_directories(place(".del-dead"));
    std::ofstream(place(".del-dead") / "rest") << "x";
    makeContainer(gost, L"dead", "");
    EXPECT_EQ(entries(), 1U);
}

} // namespace csp_keys
