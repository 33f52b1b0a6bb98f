// Enveloped messages between this system, openssl and Bouncy Castle, both ways, through the command. Prints the matrix.

#include "cli/workplace.hpp"
#include "interop/bouncy_castle.hpp"
#include "interop/cms_matrix.hpp"
#include "interop/table.hpp"

#include "capi/constants.hpp"
#include "enveloping.hpp"
#include "x509/cert_info.hpp"

#include <gmock/gmock.h>

#include <array>
#include <iostream>

namespace interop {
namespace {

using cli_test::Outcome;
using cli_test::Workplace;
using testing::ElementsAre;

struct Cipher {
    const char* name;
    const char* openssl; ///< its option of `openssl cms -encrypt`
};

constexpr std::array ciphers = {
    Cipher{"kuznyechik-ctr-acpkm-omac", "-kuznyechik-ctr-acpkm-omac"},
    Cipher{"kuznyechik-ctr-acpkm", "-kuznyechik-ctr-acpkm"},
    Cipher{"magma-ctr-acpkm-omac", "-magma-ctr-acpkm-omac"},
    Cipher{"magma-ctr-acpkm", "-magma-ctr-acpkm"},
    Cipher{"gost28147-89", "-gost89"},
    Cipher{"aes-256-gcm", "-aes-256-gcm"},
    Cipher{"aes-256-cbc", "-aes-256-cbc"},
    Cipher{"3des-cbc", "-des3"},
};

constexpr std::array notOffered = {
    NotOffered{"*rsa", "*-ctr-*", "a GOST cipher, and RSA keys"},
    NotOffered{"*rsa", "gost*", "a GOST cipher, and RSA keys"},
    NotOffered{"*agreement*rsa", "*", "agreement is for GOST keys"},
    NotOffered{"*gost???", "aes-*", "AES, and GOST keys"},
    NotOffered{"*gost???", "3des-*", "3DES, and GOST keys"},
    NotOffered{"*Bouncy Castle*", "*-ctr-*", "Bouncy Castle 1.72 does not have this cipher in CMS"},
};

std::vector<std::string> columns() {
    std::vector<std::string> names;
    for (const Cipher& cipher : ciphers) {
        names.emplace_back(cipher.name);
    }
    return names;
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

    /// Calls `act(kind, cipher)` for each cell of the row that is offered.
    template <class Do>
    void forEach(const std::string& row, Do act) {
        for (const KeyKind& kind : keyKinds()) {
            for (const Cipher& cipher : ciphers) {
                if (table_.offered(row + kind.name, cipher.name)) {
                    act(kind, cipher);
                }
            }
        }
    }

    /// Sets a cell by whether `file` is the report; removes it.
    void judge(const std::string& row, const Cipher& cipher, const std::string& file, const Outcome& done) {
        const bool same = done.exit == 0 && place_.folder().has(file) &&
                          place_.folder().read(file) == place_.folder().read("report.txt");
        EXPECT_TRUE(same) << row << " " << cipher.name << ": " << done.out << done.err;
        table_.set(row, cipher.name, same);
        place_.folder().remove(file);
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

    /// The same by key agreement, as the service does it: the command writes key transport only.
    void encryptByAgreement(const std::string& certificate, const std::string& out, bool ber) {
        using namespace klunortredi;
        const csp::CertInfo recipient(test::bytes(place_.folder().read(certificate)));
        const CERT_INFO& fields = recipient.get();
        CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO key{};
        key.cbSize = sizeof key;
        key.RecipientPublicKey = fields.SubjectPublicKeyInfo.PublicKey;
        key.RecipientId.dwIdChoice = capi::CERT_ID_ISSUER_SERIAL_NUMBER;
        key.RecipientId.u.IssuerSerialNumber = {fields.Issuer, fields.SerialNumber};
        CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO* keys = &key;
        CRYPT_ALGORITHM_IDENTIFIER ephemeral = fields.SubjectPublicKeyInfo.Algorithm;
        std::string wrap = "1.2.643.2.2.13.1"; // CryptoPro key wrap
        CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO agreement{};
        agreement.cbSize = sizeof agreement;
        agreement.KeyWrapAlgorithm.pszObjId = wrap.data();
        agreement.dwKeyChoice = capi::CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE;
        agreement.u.pEphemeralAlgorithm = &ephemeral;
        agreement.cRecipientEncryptedKeys = 1;
        agreement.rgpRecipientEncryptedKeys = &keys;
        CMSG_RECIPIENT_ENCODE_INFO choice{};
        choice.dwRecipientChoice = capi::CMSG_KEY_AGREE_RECIPIENT;
        choice.u.pKeyAgree = &agreement;
        test::EnvelopOptions options;
        options.cipher = "1.2.643.2.2.21"; // GOST 28147-89
        options.streamed = ber;
        options.spoil = [&](CMSG_ENVELOPED_ENCODE_INFO& info) {
            info.cRecipients = 1;
            info.rgCmsRecipients = &choice;
        };
        const test::Enveloped made = test::tryEnvelop({}, test::bytes(place_.folder().read("report.txt")), options);
        EXPECT_EQ(made.error, 0U);
        place_.folder().write(out, std::string(made.message.begin(), made.message.end()));
    }

    void makeRecipients() {
        for (const KeyKind& kind : keyKinds()) {
            place_.makeSigner(kind.name, kind.provider, "encipher_extensions");
        }
    }

    void expectRight() {
        table_.print(std::cout);
        EXPECT_THAT(table_.wrong(), ElementsAre());
    }

    Workplace place_;
    Table table_{"Encrypted messages", columns(), notOffered};
};

TEST_F(Enveloped, OpensslDecryptsOurs) {
    const std::string row = "ours, openssl decrypts, ";
    for (const KeyKind& kind : keyKinds()) {
        const std::string name = kind.name;
        std::vector<std::string> words{
            "req",     "-x509",       "-nodes", "-days",       "30",     "-subj", "/CN=Other " + name,
            "-keyout", name + ".key", "-out",   name + ".crt", "-newkey"};
        words.insert(words.end(), kind.newKey.begin(), kind.newKey.end());
        place_.openssl().must(words);
    }
    forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
        // The engine decrypts with sections of 1 KiB (Magma) and 4 KiB what it encrypts with 8 KiB and 256 KiB.
        const bool sections = std::string(cipher.name).find("acpkm") != std::string::npos;
        writeReport(sections ? 1001 : 150001);
        const std::string name = kind.name;
        for (const bool ber : {false, true}) {
            encrypt(name + ".crt", cipher, "message", ber);
            judge(row + name, cipher, "plaintext",
                  place_.openssl().run({"cms", "-decrypt", "-binary", "-inform", "DER", "-in", "message", "-inkey",
                                        name + ".key", "-recip", name + ".crt", "-out", "plaintext"}));
        }
    });
    expectRight();
}

TEST_F(Enveloped, WeDecryptOpenssls) {
    const std::string row = "openssl's, we decrypt, ";
    makeRecipients();
    forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
        for (const bool ber : {false, true}) {
            std::vector<std::string> words{"cms", "-encrypt",   "-binary", "-outform", "DER",
                                           "-in", "report.txt", "-out",    "message",  cipher.openssl};
            if (ber) {
                words.emplace_back("-stream");
            }
            words.push_back(std::string(kind.name) + ".pem");
            place_.openssl().must(words);
            judge(row + kind.name, cipher, "plaintext",
                  place_.cliWithPin({"decrypt", "message", "--out", "plaintext"}));
        }
    });
    expectRight();
}

/// Beginnings of rows; the kind of key follows.
constexpr std::array oursForCastle = {"ours, Bouncy Castle decrypts, ", "ours by agreement, Bouncy Castle decrypts, "};
constexpr std::array ofCastle = {"Bouncy Castle's, we decrypt, ", "Bouncy Castle's by agreement, we decrypt, "};

bool isAgreement(const std::string& row) {
    return row.find("agreement") != std::string::npos;
}

// One test, since the virtual machine of Java costs more than all the messages.
TEST_F(Enveloped, BouncyCastleDecryptsOursAndWeDecryptItsMessages) {
    if (const std::string lack = BouncyCastle::lacks(); !lack.empty()) {
        GTEST_SKIP() << "Bouncy Castle cannot judge here: " << lack;
    }
    const BouncyCastle castle(place_.folder(), "EnvelopeTool");
    std::vector<std::string> keys{"make"};
    for (const KeyKind& kind : keyKinds()) {
        keys.insert(keys.end(), {std::string("castle-") + kind.name, kind.name});
    }
    EXPECT_THAT(castle.run(keys), ElementsAre());
    makeRecipients();

    std::vector<std::string> words{"run"};
    const auto fileOf = [](const std::string& row, const KeyKind& kind, const Cipher& cipher) {
        return row.substr(0, row.find(',')) + " " + kind.name + " " + cipher.name;
    };
    for (const char* row : oursForCastle) {
        forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
            const std::string name = std::string("castle-") + kind.name;
            for (const bool ber : {false, true}) {
                const std::string file = fileOf(row, kind, cipher) + (ber ? ".ber" : ".der");
                isAgreement(row) ? encryptByAgreement(name + ".cer", file, ber)
                                 : encrypt(name + ".cer", cipher, file, ber);
                words.insert(words.end(), {"decrypt", name, kind.name, file, file + ".out"});
            }
        });
    }
    for (const char* row : ofCastle) {
        forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
            words.insert(words.end(), {isAgreement(row) ? "agree" : "encrypt", std::string(kind.name) + ".pem",
                                       cipher.name, "report.txt", fileOf(row, kind, cipher)});
        });
    }
    const std::vector<std::string> answers = castle.run(words);

    std::size_t line = 0;
    for (const char* row : oursForCastle) {
        forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
            for (const char* encoding : {".der", ".ber"}) {
                Outcome done;
                done.out = answers.at(line++);
                done.exit = done.out == "opened" ? 0 : 1;
                judge(row + std::string(kind.name), cipher, fileOf(row, kind, cipher) + encoding + ".out", done);
            }
        });
    }
    for (const char* row : ofCastle) {
        forEach(row, [&](const KeyKind& kind, const Cipher& cipher) {
            EXPECT_EQ(answers.at(line++), "made");
            judge(row + std::string(kind.name), cipher, "plaintext",
                  place_.cliWithPin({"decrypt", fileOf(row, kind, cipher), "--out", "plaintext"}));
        });
    }
    expectRight();
}

} // namespace
} // namespace interop
