// Enveloped messages between this system, openssl and Bouncy Castle, both ways, through the command. Prints the matrix.

#include "cli/workplace.hpp"
#include "interop/bouncy_castle.hpp"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <optional>

namespace interop {
namespace {

using cli_test::Outcome;
using cli_test::Workplace;

/// A kind of key: Bouncy Castle's name, the type of the provider that makes it here, openssl's words for a new one.
struct Kind {
    const char* name;
    const char* provider;
    std::vector<std::string> newKey;
};

struct Cipher {
    const char* name;
    const char* openssl; ///< its option of `openssl cms -encrypt`
    bool castle;         ///< Bouncy Castle has it
};

const std::array<Cipher, 5> gostCiphers = {
    Cipher{"kuznyechik-ctr-acpkm-omac", "-kuznyechik-ctr-acpkm-omac", false},
    Cipher{"kuznyechik-ctr-acpkm", "-kuznyechik-ctr-acpkm", false},
    Cipher{"magma-ctr-acpkm-omac", "-magma-ctr-acpkm-omac", false},
    Cipher{"magma-ctr-acpkm", "-magma-ctr-acpkm", false},
    Cipher{"gost28147-89", "-gost89", true},
};
const std::array<Cipher, 3> rsaCiphers = {
    Cipher{"aes-256-gcm", "-aes-256-gcm", true},
    Cipher{"aes-256-cbc", "-aes-256-cbc", true},
    Cipher{"3des-cbc", "-des3", true},
};

const std::array<Kind, 3> kinds = {
    Kind{"gost256", "80", {"gost2012_256", "-pkeyopt", "paramset:TCA"}},
    Kind{"gost512", "81", {"gost2012_512", "-pkeyopt", "paramset:A"}},
    Kind{"rsa", "24", {"rsa:2048"}},
};

std::vector<Cipher> ciphersOf(const Kind& kind) {
    return std::string(kind.name) == "rsa" ? std::vector<Cipher>(rsaCiphers.begin(), rsaCiphers.end())
                                           : std::vector<Cipher>(gostCiphers.begin(), gostCiphers.end());
}

class Enveloped : public testing::Test {
protected:
    Enveloped() {
        writeReport(150001); // several segments, and a length that no cipher's block divides
    }

    void writeReport(std::size_t size) {
        std::string content;
        for (int line = 0; content.size() < size; ++line) {
            content += "Line " + std::to_string(line) + " of the report.\n";
        }
        place_.folder().write("report.txt", content.substr(0, size));
    }

    void expectReport(const std::string& file, const std::string& row, const Outcome& done) {
        const bool same = done.exit == 0 && std::filesystem::exists(place_.folder() / file) &&
                          place_.folder().read(file) == place_.folder().read("report.txt");
        EXPECT_TRUE(same) << row << ": " << done.out << done.err;
        std::cout << (same ? "  read     " : "  NOT READ ") << row << "\n";
        std::filesystem::remove(place_.folder() / file);
    }

    /// Encrypts report.txt for `certificate` into `out`: BER for standard input, else DER.
    void encrypt(const std::string& certificate, const Cipher& cipher, const std::string& out, bool ber) {
        test_support::RunOptions options;
        if (ber) {
            options.input = place_.folder().read("report.txt");
        }
        const Outcome made = place_.cli({"encrypt", ber ? "-" : "report.txt", "--to", certificate, "--cipher",
                                         cipher.name, "--out", out, "--force"},
                                        options);
        EXPECT_EQ(made.exit, 0) << made.err;
    }

    Workplace place_;
};

TEST_F(Enveloped, OpensslReadsOurs) {
    for (const Kind& kind : kinds) {
        const std::string name = kind.name;
        std::vector<std::string> words{
            "req",     "-x509",       "-nodes", "-days",       "30",     "-subj", "/CN=Other " + name,
            "-keyout", name + ".key", "-out",   name + ".crt", "-newkey"};
        words.insert(words.end(), kind.newKey.begin(), kind.newKey.end());
        place_.openssl().must(words);
        for (const Cipher& cipher : ciphersOf(kind)) {
            // The engine decrypts with sections of 1 KiB (Magma) and 4 KiB what it encrypts with 8 KiB and 256 KiB.
            const bool sections = std::string(cipher.name).find("acpkm") != std::string::npos;
            writeReport(sections ? 1001 : 150001);
            for (const bool ber : {false, true}) {
                encrypt(name + ".crt", cipher, "message", ber);
                const Outcome done =
                    place_.openssl().run({"cms", "-decrypt", "-binary", "-inform", "DER", "-in", "message", "-inkey",
                                          name + ".key", "-recip", name + ".crt", "-out", "plaintext"});
                expectReport("plaintext", "openssl reads ours: " + name + " " + cipher.name + (ber ? " BER" : " DER"),
                             done);
            }
        }
    }
}

TEST_F(Enveloped, WeReadOpenssls) {
    for (const Kind& kind : kinds) {
        const std::string name = kind.name;
        place_.makeSigner(name, kind.provider, "encipher_extensions");
        for (const Cipher& cipher : ciphersOf(kind)) {
            for (const bool ber : {false, true}) {
                std::vector<std::string> words{"cms", "-encrypt",   "-binary", "-outform", "DER",
                                               "-in", "report.txt", "-out",    "message",  cipher.openssl};
                if (ber) {
                    words.emplace_back("-stream");
                }
                words.push_back(name + ".pem");
                place_.openssl().must(words);
                const Outcome done = place_.cliWithPin({"decrypt", "message", "--out", "plaintext"});
                expectReport("plaintext", "we read openssl's: " + name + " " + cipher.name + (ber ? " BER" : " DER"),
                             done);
            }
        }
    }
}

class EnvelopedByCastle : public Enveloped {
protected:
    void SetUp() override {
        if (const std::string lack = BouncyCastle::lacks(); !lack.empty()) {
            GTEST_SKIP() << "Bouncy Castle cannot judge here: " << lack;
        }
        castle_.emplace(place_.folder(), "EnvelopeTool");
    }
    /// The rows of the matrix that Bouncy Castle has: file name, kind and cipher.
    template <class Do>
    static void forEach(Do act) {
        for (const Kind& kind : kinds) {
            for (const Cipher& cipher : ciphersOf(kind)) {
                if (cipher.castle) {
                    act(kind, cipher, std::string(kind.name) + "-" + cipher.name);
                }
            }
        }
    }
    std::optional<BouncyCastle> castle_;
};

TEST_F(EnvelopedByCastle, BouncyCastleReadsOurs) {
    EXPECT_THAT(castle_->run({"make", "gost256", "gost256", "gost512", "gost512", "rsa", "rsa"}),
                testing::ElementsAre());
    std::vector<std::string> words{"run"};
    forEach([&](const Kind& kind, const Cipher& cipher, const std::string& file) {
        encrypt(std::string(kind.name) + ".cer", cipher, file, false);
        words.insert(words.end(), {"decrypt", kind.name, kind.name, file, file + ".out"});
    });
    const auto lines = castle_->run(words);
    std::size_t row = 0;
    forEach([&](const Kind&, const Cipher&, const std::string& file) {
        Outcome done;
        done.exit = 0;
        done.out = lines.at(row);
        expectReport(file + ".out", "Bouncy Castle reads ours: " + file, done);
        ++row;
    });
}

TEST_F(EnvelopedByCastle, WeReadBouncyCastles) {
    std::vector<std::string> words{"run"};
    for (const Kind& kind : kinds) {
        place_.makeSigner(kind.name, kind.provider, "encipher_extensions");
    }
    forEach([&](const Kind& kind, const Cipher& cipher, const std::string& file) {
        words.insert(words.end(), {"encrypt", std::string(kind.name) + ".pem", cipher.name, "report.txt", file});
    });
    const auto lines = castle_->run(words);
    std::size_t row = 0;
    forEach([&](const Kind&, const Cipher&, const std::string& file) {
        EXPECT_EQ(lines.at(row), "made");
        ++row;
        expectReport("plaintext", "we read Bouncy Castle's: " + file,
                     place_.cliWithPin({"decrypt", file, "--out", "plaintext"}));
    });
}

} // namespace
} // namespace interop
