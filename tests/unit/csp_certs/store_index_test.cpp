// Large stores: how many files are looked at, and what an index may and may not do. Operations are counted, not timed.

#include "core/files.hpp"
#include "core/hex.hpp"
#include "file_calls.hpp"
#include "service.hpp"
#include "stores/store_file.hpp"
#include "stores/store_index.hpp"
#include "stores/system_store.hpp"

#include <gmock/gmock.h>

#include <thread>

namespace {

using file_calls::Call;
using testing::SizeIs;

constexpr int many = 200;

/// The file of a certificate as a store has it: written without the store, which would wait for the disk each time.
struct Made {
    std::string name;
    std::string text;
};

/// Certificates of one key: what counts here is their number.
const std::vector<csp::Bytes>& certificates() {
    static const auto* const made = [] {
        auto* const list = new std::vector<csp::Bytes>;
        const csp::ossl::Pkey key = pki::newKey(pki::KeyKind::Ec);
        for (int i = 0; i < many; ++i) {
            list->push_back(
                pki::make({.subject = "n" + std::to_string(i), .serial = i + 1, .reuseKey = key.get()}).der);
        }
        return list;
    }();
    return *made;
}

const std::vector<Made>& storeFiles() {
    static const auto* const made = [] {
        auto* const list = new std::vector<Made>;
        for (const csp::Bytes& der : certificates()) {
            const csp::Certificate certificate(der);
            list->push_back({csp::toHex(certificate.thumbprint()) + ".pem", csp::formatStoreFile(certificate, {})});
        }
        return list;
    }();
    return *made;
}

class StoreIndexed : public ServiceTest {
protected:
    StoreIndexed() {
        for (const Made& file : storeFiles()) {
            write(folder("ca") / file.name, file.text);
        }
        learn(systemStore("ca").get());
    }
    ~StoreIndexed() override { file_calls::judge = nullptr; }

    void count() {
        opened_ = looked_ = listed_ = 0;
        file_calls::judge = [this](Call call, const std::string& path) {
            opened_ += call == Call::Open && path.ends_with(".pem") ? 1 : 0;
            looked_ += call == Call::Stat && path.find("/stores/") != std::string::npos ? 1 : 0;
            listed_ += call == Call::OpenFolder ? 1 : 0;
            return 0;
        };
    }
    static Context find(void* store, const csp::Bytes& der) {
        const Context wanted = contextOf(der);
        return Context(api::CertGetSubjectCertificateFromStore(store, encodings, wanted->pCertInfo));
    }
    /// A search that finds nothing reads every file that is not known yet.
    static void learn(void* store) {
        static const csp::Bytes stranger = pki::make({.subject = "nobody", .serial = 99999}).der;
        ASSERT_EQ(find(store, stranger), nullptr);
    }
    static Context findSubject(void* store, const csp::Bytes& der) {
        const Context wanted = contextOf(der);
        return Context(api::CertFindCertificateInStore(store, encodings, 0, capi::CERT_FIND_SUBJECT_NAME,
                                                       &wanted->pCertInfo->Subject, nullptr));
    }
    [[nodiscard]] std::string index() const { return folder("ca") / csp::indexFileName; }
    [[nodiscard]] std::string fileOf(const csp::Bytes& der) const {
        return folder("ca") / (csp::toHex(csp::Certificate(der).thumbprint()) + ".pem");
    }
    /// The clock of the file system moves on: what was listed before is known to be complete.
    static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

    int opened_ = 0;
    int looked_ = 0;
    int listed_ = 0;
};

TEST_F(StoreIndexed, ListingLooksAtEachFileOnce) {
    const auto store = systemStore("ca");
    count();
    EXPECT_THAT(walk(store.get()), SizeIs(many));
    EXPECT_EQ(opened_, many);
    EXPECT_LE(looked_, many + 2);
    EXPECT_EQ(listed_, 1);
}

TEST_F(StoreIndexed, NewProcessFindsOneWithoutReadingTheOthers) {
    const csp::Bytes& wanted = certificates()[17];
    for (int kind = 0; kind < 3; ++kind) {
        const auto store = systemStore("ca"); // the last opening is gone, and with it what it knew
        const Context known = contextOf(wanted);
        count();
        const Context found =
            kind == 0   ? find(store.get(), wanted)
            : kind == 1 ? findSubject(store.get(), wanted)
                        : Context(api::CertFindCertificateInStore(store.get(), encodings, 0, capi::CERT_FIND_EXISTING,
                                                                  known.get(), nullptr));
        EXPECT_NE(found, nullptr) << kind;
        EXPECT_EQ(opened_, 1) << kind;
        EXPECT_LE(listed_, kind == 2 ? 0 : 1) << kind;
    }
}

TEST_F(StoreIndexed, SameProcessLooksAtOneFile) {
    const auto store = systemStore("ca");
    settle();
    learn(store.get());
    count();
    EXPECT_NE(find(store.get(), certificates()[17]), nullptr);
    EXPECT_LE(opened_, 1);
    EXPECT_LE(looked_, 2) << "the folder and the file";
    EXPECT_EQ(listed_, 0);
}

TEST_F(StoreIndexed, AddingAndDeletingReadNoOtherFile) {
    const auto store = systemStore("ca");
    settle();
    learn(store.get());
    count();
    for (int i = 0; i < 3; ++i) {
        const Context added = add(store.get(), pki::make({.subject = "new" + std::to_string(i), .serial = 7}).der);
        ASSERT_TRUE(api::CertDeleteCertificateFromStore(api::CertDuplicateCertificateContext(added.get())));
    }
    EXPECT_EQ(opened_, 0);
    EXPECT_EQ(listed_, 0);
    EXPECT_LE(looked_, 3 * 12);
}

TEST_F(StoreIndexed, ChainReadsItsPath) {
    const pki::Entity root = pki::root("R");
    const pki::Entity leaf = pki::make({.subject = "leaf", .issuer = &root});
    add(systemStore("root").get(), root.der);
    const Context context = contextOf(leaf.der);
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    const CERT_CHAIN_CONTEXT* chain = nullptr;
    count();
    ASSERT_TRUE(api::CertGetCertificateChain(nullptr, context.get(), nullptr, nullptr, &para, 0, nullptr, &chain));
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
    api::CertFreeCertificateChain(chain);
    EXPECT_LE(opened_, 2);
}

TEST_F(StoreIndexed, IndexIsWrittenAgainWhenItIsCutOrFromElsewhere) {
    const std::string whole = content(index());
    ASSERT_GT(whole.size(), many * 20);
    for (const std::string& text :
         {std::string(), whole.substr(0, whole.size() - 1), whole.substr(0, 40), whole + "x", std::string("junk"),
          "klunortredi store index 2\n" + whole.substr(whole.find('\n') + 1)}) {
        write(index(), text);
        EXPECT_NE(find(systemStore("ca").get(), certificates()[17]), nullptr);
        learn(systemStore("ca").get());
        EXPECT_GE(csp::readStoreIndex(folder("ca")).size(), many - 64U) << text.size();
    }
}

TEST_F(StoreIndexed, IndexThatLiesHidesNothingOnceAFileWasRead) {
    csp::StoreIndex index = csp::readStoreIndex(folder("ca"));
    for (auto& [thumbprint, keys] : index) {
        keys.fill(1);
    }
    csp::files::writeAtomically(this->index(), csp::formatStoreIndex(index));
    const auto store = systemStore("ca");
    EXPECT_THAT(walk(store.get()), SizeIs(many)) << "a walk does not use it";
    EXPECT_NE(find(store.get(), certificates()[17]), nullptr);
}

TEST_F(StoreIndexed, IndexWithNamesOfNobodyAddsNothing) {
    csp::StoreIndex index = csp::readStoreIndex(folder("ca"));
    index[std::string(40, 'a')] = index.begin()->second;
    csp::files::writeAtomically(this->index(), csp::formatStoreIndex(index));
    EXPECT_THAT(walk(systemStore("ca").get()), SizeIs(many));
    EXPECT_FALSE(std::filesystem::exists(folder("ca") / (std::string(40, 'a') + ".pem")));
}

TEST_F(StoreIndexed, CopiedFolderServesWithItsIndex) {
    std::filesystem::copy(folder("ca"), folder("my"));
    const auto store = systemStore("my");
    count();
    EXPECT_NE(find(store.get(), certificates()[17]), nullptr);
    EXPECT_LE(opened_, 1);
    EXPECT_THAT(walk(store.get()), SizeIs(many));
}

TEST_F(StoreIndexed, FileThatSomebodyPutsThereOrTakesAwayIsSeen) {
    const auto store = systemStore("ca");
    ASSERT_NE(find(store.get(), certificates()[17]), nullptr);
    const std::string text = content(fileOf(certificates()[17]));
    std::filesystem::remove(fileOf(certificates()[17]));
    EXPECT_EQ(find(store.get(), certificates()[17]), nullptr);
    EXPECT_THAT(walk(store.get()), SizeIs(many - 1));
    write(fileOf(certificates()[17]), text);
    EXPECT_NE(find(store.get(), certificates()[17]), nullptr);
}

TEST_F(StoreIndexed, DamagedFileThatIsMendedInPlaceIsSeen) {
    const auto store = systemStore("ca");
    const std::string file = fileOf(certificates()[17]);
    const std::string text = content(file);
    write(file, "junk");
    EXPECT_EQ(find(systemStore("ca").get(), certificates()[17]), nullptr);
    write(file, text);
    EXPECT_NE(find(systemStore("ca").get(), certificates()[17]), nullptr);
}

TEST_F(StoreIndexed, FolderThatCannotBeWrittenServesWithoutAnIndex) {
    std::filesystem::remove(index());
    file_calls::judge = [](Call call, const std::string& path) {
        return call == Call::Open && path.ends_with("/ca") ? EROFS : 0; // the lock
    };
    EXPECT_NE(find(systemStore("ca").get(), certificates()[17]), nullptr);
    EXPECT_FALSE(std::filesystem::exists(index()));
}

TEST_F(ServiceTest, SmallStoreHasNoIndex) {
    add(systemStore("my").get(), certificates()[0]);
    walk(systemStore("my").get());
    EXPECT_THAT(files("my"), SizeIs(1));
}

} // namespace
