// Cases that other projects and standards bodies published, with their verdicts. Only the signature counts here: a row
// that is invalid for its chain or its time is expected as its valid twin.

#include "support.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace klunortredi::test {
namespace {

struct Case {
    std::filesystem::path folder;
    std::string id;
    std::string op;
    std::string input;
    std::map<std::string, std::string> args;
    std::string expected;
    std::string why;
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

std::vector<Case> cases(const std::string& folder) {
    std::vector<Case> all;
    std::ifstream manifest(corpora() / folder / "MANIFEST.tsv");
    for (std::string line; std::getline(manifest, line);) {
        const std::vector<std::string> columns = split(line, '\t');
        if (columns.size() < 8 || columns[1] == "op") {
            continue;
        }
        Case& added =
            all.emplace_back(Case{corpora() / folder, columns[0], columns[1], columns[2], {}, columns[4], columns[7]});
        for (const std::string& pair : split(columns[3], ';')) {
            added.args[pair.substr(0, pair.find('='))] = pair.substr(std::min(pair.find('='), pair.size() - 1) + 1);
        }
    }
    return all;
}

/// What tells whether two rows ask the same about the signature itself.
std::string signatureKey(const Case& c) {
    const auto content = c.args.find("content");
    return c.input + "|" + (content == c.args.end() ? "" : content->second);
}

Verdict verdictOf(const Case& c, std::size_t chunk) {
    VerifyOptions options;
    options.chunk = chunk;
    for (const char* const key : {"cert", "inter"}) {
        if (c.args.contains(key)) {
            for (const std::string& file : split(c.args.at(key), '|')) {
                options.certificates.push_back(fromPem(readFile(c.folder / file)));
            }
        }
    }
    Bytes content;
    if (c.args.contains("content")) {
        content = readFile(c.folder / c.args.at("content"));
        options.detachedContent = &content;
    }
    return verifyStreamed(fromPem(readFile(c.folder / c.input)), options);
}

class Corpora : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (corpora().empty()) {
            GTEST_SKIP() << "the folder of published cases is not at hand (KLUNORTREDI_CORPORA)";
        }
    }
};

TEST_P(Corpora, SignatureVerdictsAreThePublishedOnes) {
    const std::vector<Case> all = cases(GetParam());
    std::set<std::string> validSignatures;
    for (const Case& c : all) {
        if (c.op == "cms-verify" && c.expected != "INVALID") {
            validSignatures.insert(signatureKey(c));
        }
    }
    std::size_t checked = 0;
    for (const Case& c : all) {
        if (c.op != "cms-verify") {
            continue;
        }
        ++checked;
        const bool expected = validSignatures.contains(signatureKey(c));
        const Verdict verdict = verdictOf(c, whole);
        EXPECT_EQ(verdict.error == 0, expected) << c.id << ": " << c.why << ": " << std::hex << verdict.error;
        if (expected && c.args.contains("out")) {
            EXPECT_EQ(verdict.content, readFile(c.folder / c.args.at("out"))) << c.id;
        }
        for (const std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
            EXPECT_EQ(verdictOf(c, chunk), verdict) << c.id << " in chunks of " << chunk;
        }
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, Corpora,
                         testing::Values("gost-tc26-cms", "gost-gnutls-generated", "gost-adversarial", "gnutls-cms",
                                         "cms-interop"),
                         [](const auto& row) {
                             std::string name = row.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

class MessageCorpora : public Corpora {};

TEST_P(MessageCorpora, MessagesThatOthersParseAreRead) {
    std::size_t checked = 0;
    for (const Case& c : cases(GetParam())) {
        if (c.op != "parse" || c.expected != "OK") {
            continue;
        }
        ++checked;
        Collected collected;
        CMSG_STREAM_INFO stream = collected.info();
        const Msg msg = Msg::decode(0, &stream);
        const DWORD error = msg.feed(fromPem(readFile(c.folder / c.input)));
        if (c.id == "bc-cert7") { // six octets of text stand behind the message
            EXPECT_EQ(error, capi::CRYPT_E_ASN1_CORRUPT);
            continue;
        }
        EXPECT_TRUE(error == 0 || error == capi::CRYPT_E_INVALID_MSG_TYPE) << c.id << ": " << std::hex << error;
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, MessageCorpora, testing::Values("cms-interop", "gnutls-cms"),
                         [](const auto& row) { return row.index == 0 ? "cms_interop" : "gnutls_cms"; });

class MalformedCorpora : public Corpora {};

TEST_P(MalformedCorpora, GiveACleanVerdictThatDoesNotDependOnChunks) {
    std::size_t checked = 0;
    for (const Case& c : cases(GetParam())) {
        if (c.op != "parse" || c.args.at("type") != "cms") {
            continue;
        }
        ++checked;
        const Bytes message = readFile(c.folder / c.input);
        const Verdict verdict = verifyStreamed(message);
        VerifyOptions chunked;
        chunked.chunk = 1;
        EXPECT_EQ(verifyStreamed(message, chunked), verdict) << c.id;
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, MalformedCorpora, testing::Values("malformed"),
                         [](const auto&) { return "malformed"; });

} // namespace
} // namespace klunortredi::test
