#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Pin : public testing::Test {
protected:
    Pin() {
        place_.makeSigner("one");
        place_.folder().write("wrong.txt", "00000000\n");
    }

    Outcome sign(const std::vector<std::string>& source, RunOptions options = {}) {
        std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one", "--force"};
        words.insert(words.end(), source.begin(), source.end());
        return place_.cli(words, std::move(options));
    }

    /// The number before "tries left".
    static int triesLeft(const Outcome& run) {
        const auto at = run.err.find(" tries left");
        const auto start = run.err.rfind(' ', at - 1);
        return at == std::string::npos ? -1 : std::stoi(run.err.substr(start + 1, at - start - 1));
    }

    Workplace place_;
};

TEST_F(Pin, ComesFromAFileAVariableOrADescriptor) {
    EXPECT_EQ(sign({"--pin-file", "pin.txt"}).exit, 0);
    RunOptions variable;
    variable.environment = {{"MY_PIN", pinOf}};
    EXPECT_EQ(sign({"--pin-env", "MY_PIN"}, variable).exit, 0);
    RunOptions descriptor;
    descriptor.input = std::string(pinOf) + "\n";
    EXPECT_EQ(sign({"--pin-fd", "0"}, descriptor).exit, 0);
}

TEST_F(Pin, AWrongOneIsCountedOnceAcrossProcessesAndTold) {
    const Outcome first = sign({"--pin-file", "wrong.txt"});
    EXPECT_EQ(first.exit, 6);
    EXPECT_FALSE(place_.folder().has("report.txt.sig"));
    const int left = triesLeft(first);
    ASSERT_GT(left, 1) << first.err;
    const Outcome second = sign({"--pin-file", "wrong.txt"});
    EXPECT_EQ(second.exit, 6);
    EXPECT_EQ(triesLeft(second), left - 1) << second.err;
}

TEST_F(Pin, TheRightOneStartsTheCountAnew) {
    const int left = triesLeft(sign({"--pin-file", "wrong.txt"}));
    ASSERT_EQ(sign({"--pin-file", "pin.txt"}).exit, 0);
    EXPECT_EQ(triesLeft(sign({"--pin-file", "wrong.txt"})), left);
}

TEST_F(Pin, IsNotCalledWrongWhenTheContainerIsDamaged) {
    const std::filesystem::path key = place_.home() + "/containers/one.80/exchange.1.p8";
    std::ofstream(key, std::ios::app) << 'x';
    const Outcome damaged = sign({"--pin-file", "pin.txt"});
    EXPECT_EQ(damaged.exit, 3);
    EXPECT_THAT(damaged.err, HasSubstr("the container is damaged"));
    std::filesystem::resize_file(key, std::filesystem::file_size(key) - 1);
    EXPECT_EQ(sign({"--pin-file", "pin.txt"}).exit, 0) << "no try was lost, and nothing else";
}

TEST_F(Pin, IsNotCalledWrongWhenItsTryCannotBeCounted) {
    RunOptions fullDisk;
    fullDisk.fileSizeLimit = 1; // the count of tries is longer
    const Outcome uncounted = sign({"--pin-file", "pin.txt"}, fullDisk);
    EXPECT_EQ(uncounted.exit, 3);
    EXPECT_THAT(uncounted.err, HasSubstr("the disk is full"));
    EXPECT_THAT(uncounted.err, Not(HasSubstr("PIN")));
}

TEST_F(Pin, IsNotCalledWrongWhenTheContainerGoesWhileItIsAskedFor) {
    const std::string pipe = place_.folder() / "pin.pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    std::thread person([&] {
        std::ofstream answer(pipe); // opens when the command reads the PIN
        EXPECT_EQ(place_.cli({"containers", "delete", "one", "--yes"}).exit, 0);
        answer << "00000000\n";
    });
    const Outcome signing = sign({"--pin-file", "pin.pipe"});
    ::close(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); // lets the person go when nobody asked
    person.join();
    EXPECT_EQ(signing.exit, 4);
    EXPECT_THAT(signing.err, HasSubstr("there is no such key container"));
    EXPECT_THAT(signing.err, Not(HasSubstr("PIN")));
}

TEST_F(Pin, TooManyWrongOnesLockTheContainer) {
    Outcome last;
    for (int tries = 0; tries < 40; ++tries) {
        last = sign({"--pin-file", "wrong.txt"});
        ASSERT_EQ(last.exit, 6) << last.err;
        if (last.err.find("locked") != std::string::npos) {
            break;
        }
    }
    EXPECT_THAT(last.err, HasSubstr("locked"));
    const Outcome right = sign({"--pin-file", "pin.txt"});
    EXPECT_EQ(right.exit, 6) << right.err;
    EXPECT_THAT(right.err, HasSubstr("locked"));
}

TEST_F(Pin, WithoutATerminalAnErrorNamesTheOptions) {
    const Outcome signing = sign({});
    EXPECT_EQ(signing.exit, 2);
    EXPECT_THAT(signing.err, HasSubstr("--pin-file"));
    EXPECT_THAT(signing.err, HasSubstr("--pin-env"));
    EXPECT_THAT(signing.err, HasSubstr("--pin-fd"));
    const Outcome request = place_.cli({"request", "--container", "two", "--subject", "2.5.4.3=Two"});
    EXPECT_EQ(request.exit, 2);
    EXPECT_FALSE(place_.folder().has("two.csr"));
}

TEST_F(Pin, ASourceThatCannotBeReadIsAnInputError) {
    EXPECT_EQ(sign({"--pin-file", "nowhere.txt"}).exit, 3);
    place_.folder().write("empty.txt", "\n");
    EXPECT_EQ(sign({"--pin-file", "empty.txt"}).exit, 3);
    EXPECT_EQ(sign({"--pin-env", "KLUNORTREDI_NO_SUCH_VARIABLE"}).exit, 2);
}

TEST_F(Pin, ThatTheServiceNeverTakesIsRefusedAndCostsNoTry) {
    const int before = triesLeft(sign({"--pin-file", "wrong.txt"}));
    place_.folder().write("long.txt", std::string(256, '1'));
    place_.folder().write("zero.txt", std::string("12345678\0"
                                                  "9",
                                                  10));
    for (const char* file : {"long.txt", "zero.txt"}) {
        const Outcome signing = sign({"--pin-file", file});
        EXPECT_EQ(signing.exit, 2) << file;
        EXPECT_THAT(signing.err, HasSubstr("cannot use the PIN")) << file;
        EXPECT_EQ(place_.cli({"install", "one.pem", "--container", "one", "--pin-file", file}).exit, 2) << file;
        EXPECT_EQ(place_.cli({"request", "--container", "two", "--subject", "2.5.4.3=Two", "--pin-file", file}).exit, 2)
            << file;
    }
    EXPECT_EQ(triesLeft(sign({"--pin-file", "wrong.txt"})), before - 1);
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U);
    RunOptions variable;
    variable.environment = {{"MY_PIN", std::string(256, '1')}};
    EXPECT_EQ(sign({"--pin-env", "MY_PIN"}, variable).exit, 2);
}

TEST_F(Pin, AWrongOneAtInstallIsTold) {
    const Outcome installing = place_.cli({"install", "one.pem", "--container", "one", "--pin-file", "wrong.txt"});
    EXPECT_EQ(installing.exit, 6) << installing.err;
    EXPECT_THAT(installing.err, HasSubstr("tries left"));
}

TEST_F(Pin, IsNeverShown) {
    const Outcome signing = sign({"--pin-file", "pin.txt", "-vvvv"});
    EXPECT_EQ(signing.exit, 0);
    EXPECT_THAT(signing.err + signing.out, Not(HasSubstr(pinOf)));
}

} // namespace
} // namespace cli_test
