#include "orvik/plugin/session.hpp"
#include "orvik/plugin/user_agent.hpp"
#include "orvik/plugin/version_registry.hpp"
#include "support/process.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

using orvik::plugin::UserAgent;
using orvik::plugin::VersionRegistry;
using testing::EndsWith;
using testing::HasSubstr;

std::string answerOf(const std::vector<std::string>& command) {
    auto text = test_support::run(command).out;
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

TEST(UserAgent, NamesMachineAccountAndProgram) {
    const UserAgent agent;
    EXPECT_EQ(agent.machine, answerOf({"uname", "-n"}));
    EXPECT_EQ(agent.user, answerOf({"id", "-un"}));
    EXPECT_EQ(agent.process, "host_system_test");
}

TEST(VersionRegistry, NamesDistributionAndKernel) {
    EXPECT_THAT(VersionRegistry::os(), EndsWith(answerOf({"uname", "-sr"})));
    EXPECT_THAT(VersionRegistry::os(), HasSubstr(answerOf({"sh", "-c", ". /etc/os-release && echo \"$PRETTY_NAME\""})));
}

TEST(VersionRegistry, TellsTheProductsVersion) {
    EXPECT_EQ(VersionRegistry::product(), PRODUCT_VERSION);
}

TEST(Session, IsOne) {
    EXPECT_EQ(&orvik::plugin::Session::instance(), &orvik::plugin::Session::instance());
}

} // namespace
