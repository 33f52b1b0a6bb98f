#include "interop/cms_matrix.hpp"

#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <initializer_list>

namespace interop {

namespace {

using cli_test::Outcome;
using cli_test::RunOptions;

/// A: attached, D: detached; +: with signed attributes, -: without.
constexpr std::array shapes = {
    Shape{"A+ DER", "attached-attributes-der", true, true, false},
    Shape{"A+ BER", "attached-attributes-ber", true, true, true},
    Shape{"A- DER", "attached-plain-der", true, false, false},
    Shape{"A- BER", "attached-plain-ber", true, false, true},
    Shape{"D+ DER", "detached-attributes-der", false, true, false},
    Shape{"D+ BER", "detached-attributes-ber", false, true, true},
    Shape{"D- DER", "detached-plain-der", false, false, false},
    Shape{"D- BER", "detached-plain-ber", false, false, true},
    Shape{"key id", "key-id", true, true, false},
    Shape{"PSS", "pss", true, true, false},
    Shape{"time-stamp", "time-stamp", true, true, false},
};

constexpr std::array notOffered = {
    NotOffered{"*gost*", "PSS", "RSASSA-PSS is a scheme of RSA keys"},
    NotOffered{"*, we verify*", "time-stamp", "no command of theirs puts a time-stamp into a message"},
    NotOffered{"ours,*", "D[+-] BER", "a detached signature is small, and written as DER"},
    NotOffered{"certtool's*", "?? BER", "certtool writes definite lengths only"},
    NotOffered{"certtool's*", "key id", "certtool names its signers by issuer and serial number"},
};

std::vector<std::string> columns() {
    std::vector<std::string> names;
    for (const Shape& shape : shapes) {
        names.emplace_back(shape.column);
    }
    return names;
}

bool is(const Shape& shape, const char* column) {
    return std::string(shape.column) == column;
}

/// Whether ours is made from content of unknown size: attached signatures are BER then, detached ones DER always.
bool isStream(const Shape& shape) {
    return shape.ber || !shape.attached;
}

constexpr const char* attributeValue = "слово";
/// Of the copy of a message with one bit changed.
constexpr const char* damaged = ".damaged";

klunortredi::test::KeyKind serviceKind(const KeyKind& kind) {
    using Kind = klunortredi::test::KeyKind;
    return kind.name == std::string("rsa")       ? Kind::Rsa
           : kind.name == std::string("gost512") ? Kind::Gost512
                                                 : Kind::Gost256;
}

std::string nameOf(const std::string& tool) {
    return tool == "castle" ? "Bouncy Castle" : tool;
}

std::string rowOfOurs(const std::string& judge, const KeyKind& kind) {
    return "ours, " + nameOf(judge) + " verifies, " + kind.name;
}

std::string rowOfTheirs(const std::string& maker, const KeyKind& kind) {
    return nameOf(maker) + "'s, we verify, " + kind.name;
}

} // namespace

const std::vector<KeyKind>& keyKinds() {
    static const std::vector<KeyKind> kinds = {
        KeyKind{"gost256", "80", {"gost2012_256", "-pkeyopt", "paramset:XA"}},
        KeyKind{"gost512", "81", {"gost2012_512", "-pkeyopt", "paramset:A"}},
        KeyKind{"rsa", "24", {"rsa:2048"}},
    };
    return kinds;
}

CmsMatrix::CmsMatrix(cli_test::Workplace& place) : place_(place), table_("CMS signatures", columns(), notOffered) {
    for (const char* maker : {"ours", "openssl", "certtool", "castle"}) {
        for (const KeyKind& kind : keyKinds()) {
            std::filesystem::create_directories(place_.folder() / (std::string(maker) + "/" + kind.name));
        }
    }
}

void CmsMatrix::make() {
    for (const KeyKind& kind : keyKinds()) {
        makeOurs(kind);
        makeByOpenssl(kind);
        makeByCerttool(kind);
    }
}

// ---- making -----------------------------------------------------------------------------------------------------

void CmsMatrix::signByCommand(const KeyKind& kind, const Message& message) {
    const Shape& shape = *message.shape;
    std::vector<std::string> words{"sign",        isStream(shape) ? "-" : "report.txt",
                                   "--cert",      std::string("Signer ") + kind.name,
                                   "--format",    shape.attached ? "attached" : "detached",
                                   "--out",       message.file,
                                   "--attribute", std::string("1.2.3.4=UTF8String:") + attributeValue};
    if (is(shape, "key id")) {
        words.emplace_back("--by-key-id");
    } else if (is(shape, "PSS")) {
        words.emplace_back("--pss");
    } else if (is(shape, "time-stamp")) {
        words.insert(words.end(), {"--timestamp", authority_.url("/tsa")});
    }
    RunOptions options;
    options.input = isStream(shape) ? place_.folder().read("report.txt") : std::string();
    const Outcome signing = place_.cliWithPin(words, options);
    EXPECT_EQ(signing.exit, 0) << message.file << ": " << signing.err;
}

void CmsMatrix::makeOurs(const KeyKind& kind) {
    place_.makeSigner(kind.name, kind.provider);
    // The command always writes signed attributes; the service does not have to.
    const klunortredi::test::Signer signer = klunortredi::test::makeSigner(serviceKind(kind));
    const std::string own = std::string("service-") + kind.name;
    place_.folder().write(own + ".der", std::string(signer.certificate.begin(), signer.certificate.end()));
    place_.openssl().must({"x509", "-inform", "DER", "-in", own + ".der", "-out", own + ".pem"});
    for (const Shape& shape : shapes) {
        if (!table_.offered(rowOfOurs("openssl", kind), shape.column)) {
            continue;
        }
        const Message message{std::string("ours/") + kind.name + "/" + shape.file,
                              (shape.attributes ? kind.name : own) + ".pem", &shape};
        if (shape.attributes) {
            signByCommand(kind, message);
        } else {
            klunortredi::test::SignOptions options;
            options.detached = !shape.attached;
            options.streamed = isStream(shape);
            const auto content = klunortredi::test::bytes(place_.folder().read("report.txt"));
            const auto octets = klunortredi::test::sign({signer}, content, options);
            place_.folder().write(message.file, std::string(octets.begin(), octets.end()));
        }
        judgeOurs(kind, message);
    }
}

void CmsMatrix::makeByOpenssl(const KeyKind& kind) {
    const std::string name = kind.name;
    std::vector<std::string> newKey{"req",
                                    "-x509",
                                    "-nodes",
                                    "-days",
                                    "30",
                                    "-subj",
                                    "/CN=Other " + name,
                                    "-extensions",
                                    "signer_extensions",
                                    "-keyout",
                                    name + ".key",
                                    "-out",
                                    "other-" + name + ".pem",
                                    "-newkey"};
    newKey.insert(newKey.end(), kind.newKey.begin(), kind.newKey.end());
    place_.openssl().must(newKey);
    for (const Shape& shape : shapes) {
        if (!table_.offered(rowOfTheirs("openssl", kind), shape.column)) {
            continue;
        }
        std::vector<std::string> words{"cms",
                                       "-sign",
                                       "-binary",
                                       "-in",
                                       "report.txt",
                                       "-signer",
                                       "other-" + name + ".pem",
                                       "-inkey",
                                       name + ".key",
                                       "-outform",
                                       "DER",
                                       "-out",
                                       "openssl/" + name + "/" + shape.file};
        const auto add = [&](bool wanted, std::initializer_list<const char*> more) {
            if (wanted) {
                words.insert(words.end(), more.begin(), more.end());
            }
        };
        add(shape.attached, {"-nodetach"});
        add(!shape.attributes, {"-noattr"});
        add(shape.ber, {"-stream"});
        add(is(shape, "key id"), {"-keyid"});
        add(is(shape, "PSS"), {"-keyopt", "rsa_padding_mode:pss"});
        place_.openssl().must(words);
    }
}

void CmsMatrix::makeByCerttool(const KeyKind& kind) {
    const std::string name = kind.name;
    for (const Shape& shape : shapes) {
        if (!table_.offered(rowOfTheirs("certtool", kind), shape.column)) {
            continue;
        }
        std::string key = name + ".key";
        std::string certificate = "other-" + name + ".pem";
        if (is(shape, "PSS")) { // certtool has no option of it: the key says so
            key = "pss.key";
            certificate = "pss.pem";
            place_.openssl().must({"req", "-x509", "-nodes", "-days", "30", "-subj", "/CN=Other rsa", "-newkey",
                                   "rsa-pss", "-keyout", key, "-out", certificate});
        }
        RunOptions options;
        options.folder = place_.folder().path();
        std::vector<std::string> words{"certtool",
                                       shape.attached ? "--p7-sign" : "--p7-detached-sign",
                                       "--infile",
                                       "report.txt",
                                       "--load-certificate",
                                       certificate,
                                       "--load-privkey",
                                       key,
                                       "--outder",
                                       "--outfile",
                                       "certtool/" + name + "/" + shape.file};
        if (shape.attributes) {
            words.emplace_back("--p7-time");
        }
        const Outcome signing = test_support::run(words, options);
        EXPECT_EQ(signing.exit, 0) << name << " " << shape.column << ": " << signing.err;
    }
}

void CmsMatrix::damage(const Message& message) const {
    std::string octets = place_.folder().read(message.file);
    const auto attribute = octets.find(attributeValue);
    // The value of a signature is the last field; 40 octets are fewer than any has, and more than what ends lengths.
    constexpr std::size_t beforeEnd = 40;
    const std::size_t at = attribute != std::string::npos && message.shape->ber ? attribute
                           : message.shape->attached                            ? octets.find("The rep")
                                                                                : octets.size() - beforeEnd;
    octets.at(at) = static_cast<char>(octets.at(at) ^ 1);
    place_.folder().write(message.file + damaged, octets);
}

// ---- judging ----------------------------------------------------------------------------------------------------

void CmsMatrix::judgeOurs(const KeyKind& kind, const Message& message) {
    if (!place_.folder().has(message.file)) {
        return; // nobody made it: the cells have no outcome, which is wrong
    }
    damage(message);
    for (const char* judge : {"openssl", "certtool", "castle"}) {
        const std::string row = rowOfOurs(judge, kind);
        if (!table_.offered(row, message.shape->column)) {
            continue;
        }
        if (judge == std::string("castle")) {
            asked_.push_back({row, message});
            continue;
        }
        const auto accepts = [&](const std::string& file) {
            return judge == std::string("openssl") ? opensslAccepts(message, file) : certtoolAccepts(message, file);
        };
        table_.set(row, message.shape->column,
                   hasEncoding(message) && accepts(message.file) && !accepts(message.file + damaged));
    }
}

bool CmsMatrix::hasEncoding(const Message& message) const {
    return (place_.folder().read(message.file).at(1) == '\x80') == message.shape->ber;
}

bool CmsMatrix::opensslAccepts(const Message& message, const std::string& file) const {
    std::vector<std::string> words{"cms", "-verify", "-noverify", "-binary", "-inform",
                                   "DER", "-in",     file,        "-out",    "out"};
    if (!message.shape->attached) {
        words.insert(words.end(), {"-content", "report.txt"});
    }
    return place_.openssl().run(words).exit == 0;
}

bool CmsMatrix::certtoolAccepts(const Message& message, const std::string& file) const {
    std::vector<std::string> words{"certtool", "--p7-verify",        "--inder",          "--infile",
                                   file,       "--load-certificate", message.certificate};
    if (!message.shape->attached) {
        words.insert(words.end(), {"--load-data", "report.txt"});
    }
    RunOptions options;
    options.folder = place_.folder().path();
    return test_support::run(words, options).exit == 0;
}

std::vector<std::string> CmsMatrix::castleWords() {
    std::vector<std::string> words;
    for (const KeyKind& kind : keyKinds()) {
        words.insert(words.end(), {"cms", "sign", kind.name, "report.txt", std::string("castle/") + kind.name, "--"});
    }
    words.insert(words.end(), {"cms", "verify"});
    for (const Asked& asked : asked_) {
        const std::string content = asked.message.shape->attached ? "-" : "report.txt";
        words.insert(words.end(), {asked.message.file, content, asked.message.file + damaged, content});
    }
    return words;
}

void CmsMatrix::take(const std::vector<std::string>& lines) {
    for (std::size_t i = 0; i < asked_.size(); ++i) {
        const std::string& whole = lines.at(2 * i);
        const std::string& changed = lines.at(2 * i + 1);
        const bool right = whole.starts_with("valid CN=") && changed == "invalid";
        EXPECT_TRUE(right) << asked_[i].message.file << ": " << whole << "; one bit changed: " << changed;
        table_.set(asked_[i].row, asked_[i].message.shape->column, right && hasEncoding(asked_[i].message));
    }
}

void CmsMatrix::judgeTheirs() {
    for (const KeyKind& kind : keyKinds()) {
        judgeTheirs("openssl", kind, "CN=Other ");
        judgeTheirs("certtool", kind, "CN=Other ");
        judgeTheirs("castle", kind, "CN=Castle ");
    }
}

void CmsMatrix::judgeTheirs(const std::string& maker, const KeyKind& kind, const std::string& subject) {
    for (const Shape& shape : shapes) {
        const std::string row = rowOfTheirs(maker, kind);
        if (!table_.offered(row, shape.column)) {
            continue;
        }
        const Message message{maker + "/" + kind.name + "/" + shape.file, {}, &shape};
        if (!place_.folder().has(message.file)) {
            continue; // the same
        }
        damage(message);
        table_.set(row, shape.column,
                   hasEncoding(message) && weAccept(message, subject + kind.name) && weRefuseDamaged(message));
    }
}

bool CmsMatrix::weAccept(const Message& message, const std::string& subject) const {
    std::vector<std::string> words{"verify", message.file};
    const std::initializer_list<const char*> attached{"--extract", "out", "--force"};
    const std::initializer_list<const char*> detached{"--content", "report.txt"};
    const auto& more = message.shape->attached ? attached : detached;
    words.insert(words.end(), more.begin(), more.end());
    place_.folder().write("out", "");
    const Outcome verdict = place_.cli(words);
    return verdict.exit == 0 && verdict.out.find(subject) != std::string::npos &&
           (!message.shape->attached || place_.folder().read("out") == place_.folder().read("report.txt"));
}

bool CmsMatrix::weRefuseDamaged(const Message& message) const {
    std::vector<std::string> words{"verify", message.file + damaged};
    if (!message.shape->attached) {
        words.insert(words.end(), {"--content", "report.txt"});
    }
    return place_.cli(words).exit == 1;
}

} // namespace interop
