// Enveloped messages that others published, opened through the entry points with the published keys.

#include "corpora/manifest.hpp"
#include "corpora/tally.hpp"
#include "enveloped_support.hpp"

#include <gmock/gmock.h>

namespace klunortredi::test {
namespace {

using corpora::Case;

/// The index of the one recipient, for rows whose certificate is not published.
constexpr DWORD onlyRecipient = 0;

std::string outcome(const Case& row, const Signer& recipient, std::size_t chunk, bool keyFirst) {
    OpenOptions options;
    options.chunk = chunk;
    options.keyFirst = keyFirst;
    if (!row.has("cert")) {
        options.recipient = onlyRecipient;
    }
    const Opened opened = open(recipient, fromPem(readFile(row.inputPath())), options);
    if (opened.error != 0) {
        return "FAIL";
    }
    const bool right = !row.has("out") || opened.plaintext == readFile(row.path("out"));
    return right ? "OK" : "another plaintext";
}

class EnvelopedCorpora : public testing::TestWithParam<const char*> {};

TEST_P(EnvelopedCorpora, AreOpenedAsTheirPublishersDid) {
    const auto root = corpora::root();
    if (!root) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    corpora::Tally tally(GetParam() + std::string(" cms-decrypt"));
    for (const Case& row : corpora::cases(*root, GetParam())) {
        if (row.op == "cms-decrypt" && tally.offered(row)) {
            const Signer recipient =
                makeRecipient(readFile(row.path("key")), row.has("cert") ? readFile(row.path("cert")) : Bytes{});
            const std::string got = outcome(row, recipient, whole, false);
            tally.note(row, got);
            EXPECT_EQ(outcome(row, recipient, 13, true), got) << row.id;
        }
    }
    tally.print();
    EXPECT_GT(tally.right(), 0);
    EXPECT_THAT(tally.surprises(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, EnvelopedCorpora,
                         testing::Values("gost-tc26-cms", "gost-tk26-pygost", "gost-adversarial"), [](const auto& row) {
                             return std::string(row.index == 0 ? "tc26" : row.index == 1 ? "tk26" : "adversarial");
                         });

} // namespace
} // namespace klunortredi::test
