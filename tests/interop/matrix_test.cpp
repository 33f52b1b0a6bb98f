// Signatures between this system and openssl, certtool, Bouncy Castle, xmlsec1 and Java's XML-DSig, both ways. Prints
// the matrix.

#include "interop/bouncy_castle.hpp"
#include "interop/cms_matrix.hpp"
#include "interop/xml_matrix.hpp"

#include <gmock/gmock.h>

#include <iostream>

namespace interop {
namespace {

using testing::ElementsAre;

std::vector<std::string> joined(std::vector<std::string> first, const std::vector<std::string>& second) {
    first.emplace_back("--");
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void expectRight(const Table& table) {
    table.print(std::cout);
    EXPECT_THAT(table.wrong(), ElementsAre());
    EXPECT_THAT(table.unused(), ElementsAre()) << "reasons for what is not offered";
}

// One test, since the keys, and the virtual machine of Java, cost more than all the signatures.
TEST(Signatures, AreValidBothWays) {
    if (const std::string lack = BouncyCastle::lacks(); !lack.empty()) {
        GTEST_SKIP() << "Bouncy Castle cannot judge here: " << lack;
    }
    cli_test::Workplace place;
    CmsMatrix cms(place);
    XmlMatrix xml(place);
    cms.make();
    xml.make();
    const BouncyCastle java(place.folder(), "Matrix");
    const std::vector<std::string> lines = java.run(joined(cms.castleWords(), xml.javaWords()));
    ASSERT_GE(lines.size(), cms.lines());
    const auto end = lines.begin() + static_cast<std::ptrdiff_t>(cms.lines());
    cms.take({lines.begin(), end});
    xml.take({end, lines.end()});
    cms.judgeTheirs();
    xml.judgeTheirs();
    expectRight(cms.table());
    expectRight(xml.table());
}

} // namespace
} // namespace interop
