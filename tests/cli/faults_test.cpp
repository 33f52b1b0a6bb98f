// Each system call on a file fails in turn, in verb after verb: what was reported as done is done, nothing that was
// there before is lost, and a disk that fails is not taken for a forgery, an absent file or a wrong PIN.

#include "cli/workplace.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <span>

namespace cli_test {

namespace {

namespace fs = std::filesystem;
using test_support::Fault;
using Words = std::vector<std::string>;

class FaultPlace : public Workplace {
public:
    /// The state that each run starts from.
    void keep() {
        copy(folder().path(), kept_ / "folder");
        copy(home(), kept_ / "home");
    }

    void restore() const {
        clear(folder().path());
        clear(home());
        copy(kept_ / "folder", folder().path());
        copy(kept_ / "home", home());
    }

    /// As it was in the kept state.
    [[nodiscard]] std::string keptFile(const std::string& name) const { return kept_.read("folder/" + name); }

    /// `klunortredi`, or `klunortredi-csp` for words that begin with "container".
    [[nodiscard]] Outcome run(const Words& words, RunOptions options = {}) const {
        if (words.front() != "container") {
            return cli(words, std::move(options));
        }
        Words command{KLUNORTREDI_CSP_COMMAND};
        command.insert(command.end(), words.begin(), words.end());
        options.environment.emplace("KLUNORTREDI_HOME", home());
        options.folder = folder().path();
        return test_support::run(command, options);
    }

    [[nodiscard]] bool works(const Words& words) const { return run(words).exit == 0; }
    [[nodiscard]] std::string listed(const Words& words) const { return run(words).out; }

private:
    static void copy(const std::string& from, const std::string& to) {
        fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }

    static void clear(const std::string& folder) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            fs::remove_all(entry.path());
        }
    }

    test_support::TempFolder kept_;
};

const Words listMy{"certs", "list", "--json"};
const Words listAuthorities{"certs", "list", "--store", "ca", "--json"};
const Words listContainers{"containers", "list", "--json"};
constexpr const char* newPin = "87654321";

bool signs(const FaultPlace& place, const std::string& pinFile) {
    return place.works({"sign", "report.txt", "--cert", "one", "--pin-file", pinFile, "--out", "probe.sig", "--force"});
}

struct Verb {
    friend void PrintTo(const Verb* verb, std::ostream* out) { *out << verb->name; }
    std::string name;
    Words words;
    bool slow;                              ///< derives a key, or makes many calls
    void (*prepare)(FaultPlace&);           ///< beyond a signer "one" and a foreign certificate
    bool (*done)(const FaultPlace&);        ///< after a run that reported success; null: the output is the result
    bool (*nothingLost)(const FaultPlace&); ///< after each run
};

void nothing(FaultPlace& /*place*/) {}

bool anything(const FaultPlace& /*place*/) {
    return true;
}

bool signerIsThere(const FaultPlace& place) {
    const std::string list = place.listed(listMy);
    return list.find("Signer one") != std::string::npos && list.find("\"container\": \"one\"") != std::string::npos;
}

void addAuthority(FaultPlace& place) {
    ASSERT_TRUE(place.works({"certs", "add", "ca.pem", "--store", "ca"}));
}

bool authorityIsThere(const FaultPlace& place) {
    return place.listed(listAuthorities).find("Test CA") != std::string::npos;
}

void signTheReport(FaultPlace& place) {
    ASSERT_TRUE(place.works({"sign", "report.txt", "--cert", "one", "--pin-file", "pin.txt"}));
}

const std::string signature = "report.txt.sig";

bool signatureIsNew(const FaultPlace& place) {
    return place.folder().read(signature) != place.keptFile(signature) && place.works({"verify", signature});
}

bool signatureIsOldOrNew(const FaultPlace& place) {
    return signerIsThere(place) && place.folder().read("report.txt") == place.keptFile("report.txt") &&
           (place.folder().read(signature) == place.keptFile(signature) || place.works({"verify", signature}));
}

void requestOfNew(FaultPlace& place) {
    ASSERT_TRUE(place.works(
        {"request", "--container", "new", "--subject", "CN=New", "--pin-file", "pin.txt", "--out", "new.csr"}));
    place.openssl().issue("new.csr", "new.pem", "signer_extensions");
}

bool newIsRequested(const FaultPlace& place) {
    return place.listed(listContainers).find("\"new\"") != std::string::npos &&
           place.openssl().run({"req", "-in", "new.csr", "-inform", "DER", "-noout", "-verify"}).exit == 0;
}

bool newIsInstalled(const FaultPlace& place) {
    const std::string list = place.listed(listMy);
    return list.find("CN=New") != std::string::npos && list.find("\"container\": \"new\"") != std::string::npos;
}

void writeNewPin(FaultPlace& place) {
    place.folder().write("new-pin.txt", std::string(newPin) + "\n");
}

void encryptTheReport(FaultPlace& place) {
    ASSERT_TRUE(place.works({"encrypt", "report.txt", "--to", "one.pem", "--any-certificate", "--out", "report.p7m"}));
    place.folder().write("plain.txt", "Older text.\n");
}

bool plaintextIsThere(const FaultPlace& place) {
    return place.folder().read("plain.txt") == place.keptFile("report.txt");
}

bool plaintextIsOldOrNew(const FaultPlace& place) {
    return plaintextIsThere(place) || place.folder().read("plain.txt") == place.keptFile("plain.txt");
}

void writeKeyFile(FaultPlace& place) {
    place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-noenc", "-keyout", "imported.key", "-out",
                          "imported.pem", "-subj", "/CN=Imported", "-days", "2"});
}

bool keyIsImported(const FaultPlace& place) {
    return place.works({"container", "check", "imported"}) &&
           place.listed(listMy).find("CN=Imported") != std::string::npos;
}

const std::vector<Verb>& everyVerb() {
    static const std::vector<Verb> verbs{
        {"CertsList", listMy, false, nothing, nullptr, signerIsThere},
        {"ContainersList", listContainers, false, nothing, nullptr, signerIsThere},
        {"ContainerCheck", {"container", "check", "one"}, false, nothing, nullptr, signerIsThere},
        {"CertsAdd", {"certs", "add", "ca.pem", "--store", "ca"}, false, nothing, authorityIsThere, signerIsThere},
        {"CertsDelete",
         {"certs", "delete", "Test CA", "--store", "ca"},
         false,
         addAuthority,
         [](const FaultPlace& place) { return !authorityIsThere(place); },
         signerIsThere},
        {"ContainersDelete",
         {"containers", "delete", "new", "--yes"},
         false,
         requestOfNew,
         [](const FaultPlace& place) { return place.listed(listContainers).find("\"new\"") == std::string::npos; },
         signerIsThere},
        {"Install",
         {"install", "new.pem", "--container", "new", "--pin-file", "pin.txt"},
         true,
         requestOfNew,
         newIsInstalled,
         signerIsThere},
        {"Verify", {"verify", signature, "--json"}, false, signTheReport, nullptr, signatureIsOldOrNew},
        {"Encrypt",
         {"encrypt", "report.txt", "--to", "one.pem", "--any-certificate", "--out", "new.p7m"},
         false,
         nothing,
         [](const FaultPlace& place) {
             return place.works({"decrypt", "new.p7m", "--pin-file", "pin.txt", "--out", "probe.txt", "--force"});
         },
         signerIsThere},
        {"Sign",
         {"sign", "report.txt", "--cert", "one", "--pin-file", "pin.txt", "--force"},
         true,
         signTheReport,
         signatureIsNew,
         signatureIsOldOrNew},
        {"Decrypt",
         {"decrypt", "report.p7m", "--pin-file", "pin.txt", "--out", "plain.txt", "--force"},
         true,
         encryptTheReport,
         plaintextIsThere,
         plaintextIsOldOrNew},
        {"Request",
         {"request", "--container", "new", "--subject", "CN=New", "--pin-file", "pin.txt", "--out", "new.csr"},
         true,
         nothing,
         newIsRequested,
         signerIsThere},
        {"ChangePin",
         {"container", "change-pin", "one", "--pin-file", "pin.txt", "--new-pin-file", "new-pin.txt"},
         true,
         writeNewPin,
         [](const FaultPlace& place) { return signs(place, "new-pin.txt"); },
         [](const FaultPlace& place) { return signs(place, "pin.txt") || signs(place, "new-pin.txt"); }},
        {"Unlock", {"container", "unlock", "one"}, false, nothing, anything, signerIsThere},
        {"Import",
         {"container", "import", "imported.key", "imported.pem", "--name", "imported", "--pin-file", "pin.txt"},
         true,
         writeKeyFile,
         keyIsImported,
         signerIsThere},
    };
    return verbs;
}

struct Failure {
    const char* name;
    int error;
    bool lasting;
};

constexpr auto everyFailure = std::to_array<Failure>({
    {"EioOnce", EIO, false},
    {"EnospcLasting", ENOSPC, true},
    {"EioLasting", EIO, true},
    {"EnospcOnce", ENOSPC, false},
    {"EintrOnce", EINTR, false},
    {"EmfileOnce", EMFILE, false},
    {"EmfileLasting", EMFILE, true},
    {"EaccesOnce", EACCES, false},
    {"EaccesLasting", EACCES, true},
});

/// Whether KLUNORTREDI_FAULTS=all is in the environment: each failure of each call. Otherwise the first failure, and of
/// the slow verbs only every twelfth call.
bool everything() {
    const char* const asked = std::getenv("KLUNORTREDI_FAULTS");
    return asked != nullptr && std::string(asked) == "all";
}

class FaultWalk : public testing::TestWithParam<const Verb*> {
protected:
    FaultPlace place;

    /// Runs the verb once with the fault; false when it ends before the fault.
    bool runWith(const Fault& fault, const Outcome& honest) const {
        const Verb& verb = *GetParam();
        place.restore();
        RunOptions options;
        options.fault = fault;
        const Outcome outcome = place.run(verb.words, options);
        if (outcome.failedCall.empty()) {
            return false;
        }
        SCOPED_TRACE("call " + std::to_string(fault.call) + ", " + outcome.failedCall + ", exit " +
                     std::to_string(outcome.exit) + ": " + outcome.err + outcome.out);
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_TRUE(outcome.exit == 0 || outcome.exit == 3 || outcome.exit == 4);
        if (outcome.exit == 0) {
            EXPECT_TRUE(verb.done == nullptr ? outcome.out == honest.out : verb.done(place)) << "reported, not done";
        } else {
            EXPECT_NE(outcome.err + outcome.out, "") << "no reason";
        }
        EXPECT_TRUE(verb.nothingLost(place)) << "something is lost";
        return true;
    }
};

} // namespace

TEST_P(FaultWalk, ReportsOnlyWhatIsOnDisk) {
    if (!test_support::canFailCalls()) {
        GTEST_SKIP() << "system calls cannot be made to fail on this kind of machine";
    }
    const Verb& verb = *GetParam();
    place.makeSigner("one");
    ASSERT_NO_FATAL_FAILURE(verb.prepare(place));
    place.keep();
    const Outcome honest = place.run(verb.words);
    ASSERT_EQ(honest.exit, 0) << honest.err;
    ASSERT_TRUE(verb.done == nullptr || verb.done(place));
    const int step = verb.slow && !everything() ? 12 : 1;
    for (const Failure& failure : std::span(everyFailure).first(everything() ? everyFailure.size() : 1)) {
        SCOPED_TRACE(failure.name);
        int failed = 0;
        Fault fault{1, failure.error, failure.lasting, {place.folder().path(), place.home()}};
        for (; runWith(fault, honest); fault.call += step) {
            ++failed;
        }
        EXPECT_GT(failed, failure.error == ENOSPC && verb.done == nullptr ? -1 : 0) << "reading needs no room";
    }
}

namespace {

std::vector<const Verb*> pointersTo(const std::vector<Verb>& verbs) {
    std::vector<const Verb*> rows;
    for (const Verb& verb : verbs) {
        rows.push_back(&verb);
    }
    return rows;
}

/// Those that change something on disk, but for the slow ones.
std::vector<const Verb*> quickChanges() {
    auto rows = pointersTo(everyVerb());
    std::erase_if(rows, [](const Verb* verb) { return verb->done == nullptr || verb->slow; });
    return rows;
}

class KilledVerb : public testing::TestWithParam<const Verb*> {};

} // namespace

TEST_P(KilledVerb, LeavesTheOldOrTheNewStateAndCanBeRepeated) {
    const Verb& verb = *GetParam();
    FaultPlace place;
    place.makeSigner("one");
    ASSERT_NO_FATAL_FAILURE(verb.prepare(place));
    place.keep();
    const int killed = test_support::killAtEachChange(
        [&](const RunOptions& options, int) {
            place.restore();
            return place.run(verb.words, options);
        },
        [&](int n) {
            SCOPED_TRACE("killed before change " + std::to_string(n));
            EXPECT_TRUE(verb.nothingLost(place)) << "something is lost";
            if (!verb.done(place)) {
                const Outcome again = place.run(verb.words);
                EXPECT_EQ(again.exit, 0) << again.err;
                EXPECT_TRUE(verb.done(place));
                EXPECT_TRUE(verb.nothingLost(place));
            }
        });
    EXPECT_GT(killed, 0);
}

INSTANTIATE_TEST_SUITE_P(Verbs, KilledVerb, testing::ValuesIn(quickChanges()),
                         [](const auto& row) { return row.param->name; });

INSTANTIATE_TEST_SUITE_P(Verbs, FaultWalk, testing::ValuesIn(pointersTo(everyVerb())),
                         [](const auto& row) { return row.param->name; });

} // namespace cli_test
