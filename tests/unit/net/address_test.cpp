#include "net/address.hpp"

#include <gmock/gmock.h>

#include <netinet/in.h>
#include <sys/un.h>

#include <stdexcept>

namespace {

using klunortredi::net::addressOf;
using klunortredi::net::AddressRules;
using klunortredi::net::isPublic;
using klunortredi::net::parseAddress;
using klunortredi::net::toText;

TEST(Address, IsPublicOutsideTheSpecialNetworks) {
    for (const char* address :
         {"8.8.8.8", "1.1.1.1", "9.255.255.255", "11.0.0.0", "100.63.255.255", "100.128.0.0", "172.15.255.255",
          "172.32.0.0", "192.167.255.255", "192.169.0.0", "223.255.255.255", "2a00:1450:4001::1", "2606:4700::1111",
          "64:ff9b::808:808", "::ffff:8.8.8.8", "2002:808:808::1"}) {
        EXPECT_TRUE(isPublic(*parseAddress(address))) << address;
    }
}

TEST(Address, IsNotPublicInTheSpecialNetworks) {
    for (const char* address :
         {"0.0.0.0",         "0.1.2.3",         "10.0.0.1",        "10.255.255.255",  "100.64.0.0",
          "100.127.255.255", "127.0.0.1",       "127.255.255.254", "169.254.169.254", "172.16.0.0",
          "172.31.255.255",  "192.0.0.8",       "192.0.2.1",       "192.88.99.1",     "192.168.0.0",
          "192.168.255.255", "198.18.0.1",      "198.19.255.255",  "198.51.100.1",    "203.0.113.1",
          "224.0.0.1",       "239.255.255.255", "240.0.0.1",       "255.255.255.255"}) {
        EXPECT_FALSE(isPublic(*parseAddress(address))) << address;
    }
    for (const char* address : {"::",
                                "::1",
                                "::127.0.0.1",
                                "::ffff:127.0.0.1",
                                "::ffff:10.0.0.1",
                                "64:ff9b::7f00:1",
                                "64:ff9b::a00:1",
                                "64:ff9b:1::808:808",
                                "100::1",
                                "2001::1",
                                "2001:db8::1",
                                "2001:10::1",
                                "2002:7f00:1::",
                                "2002:a00:1::",
                                "3fff::1",
                                "4000::1",
                                "5f00::1",
                                "fc00::1",
                                "fd00::1",
                                "fe80::1",
                                "fec0::1",
                                "ff02::1"}) {
        EXPECT_FALSE(isPublic(*parseAddress(address))) << address;
    }
}

TEST(Address, ReadsTheSpellingsThatResolversTake) {
    for (const char* spelling : {"127.0.0.1", "127.1", "2130706433", "0x7f000001", "0x7f.1", "0177.0.0.1",
                                 "[::ffff:127.0.0.1]", "::ffff:7f00:1"}) {
        const auto address = parseAddress(spelling);
        ASSERT_TRUE(address) << spelling;
        EXPECT_EQ(toText(*address), "127.0.0.1") << spelling;
    }
    EXPECT_EQ(toText(*parseAddress("[FE80::1%25eth0]")), "fe80::1");
    for (const char* name : {"localhost", "example.org", "", "[127.0.0.1]", "1.2.3.4.5", "127.0.0.1 x"}) {
        EXPECT_FALSE(parseAddress(name)) << name;
    }
}

TEST(Address, IsOfIpOnly) {
    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    EXPECT_FALSE(addressOf(reinterpret_cast<const sockaddr&>(local)));
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(addressOf(reinterpret_cast<const sockaddr&>(v4)), parseAddress("127.0.0.1"));
}

TEST(AddressRules, AllowListedNetworksBesidePublicAddresses) {
    const AddressRules rules("10.1.0.0/16, fd00::/8 192.168.7.9");
    for (const char* allowed : {"8.8.8.8", "10.1.2.3", "::ffff:10.1.2.3", "fd12::1", "192.168.7.9"}) {
        EXPECT_TRUE(rules.allows(*parseAddress(allowed))) << allowed;
    }
    for (const char* refused : {"10.2.0.1", "192.168.7.8", "127.0.0.1", "fc00::1", "::1"}) {
        EXPECT_FALSE(rules.allows(*parseAddress(refused))) << refused;
    }
}

TEST(AddressRules, AllowEverythingByOneWord) {
    EXPECT_TRUE(AddressRules("allow").allows(*parseAddress("127.0.0.1")));
    EXPECT_FALSE(AddressRules("").allows(*parseAddress("127.0.0.1")));
    EXPECT_FALSE(AddressRules().allows(*parseAddress("::1")));
    EXPECT_TRUE(AddressRules("0.0.0.0/0").allows(*parseAddress("127.0.0.1")));
    EXPECT_FALSE(AddressRules("0.0.0.0/0").allows(*parseAddress("::1")));
}

TEST(AddressRules, RefuseTextsThatAreNotAddresses) {
    for (const char* text : {"allowed", "yes", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/-1", "10.0.0.0/8x",
                             "localhost", "10.0.0.0/8,private"}) {
        EXPECT_THROW(AddressRules{text}, std::invalid_argument) << text;
    }
}

} // namespace
