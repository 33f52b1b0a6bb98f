#include "openssl_tool.hpp"

#include <cstdlib>

namespace klunortredi::test {

namespace {

constexpr std::string_view configuration = R"(openssl_conf = main
[main]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
default_algorithms = ALL
[req]
distinguished_name = name
prompt = no
x509_extensions = extensions
[name]
CN = Message signer
[extensions]
subjectKeyIdentifier = hash
keyUsage = digitalSignature
)";

} // namespace

int run(const TempFolder& folder, const std::string& command) {
    const auto conf = folder.path() / "openssl.cnf";
    if (!std::filesystem::exists(conf)) {
        writeFile(conf, bytes(configuration));
    }
    const std::string line = "cd '" + folder.path().string() +
                             "' && OPENSSL_CONF=openssl.cnf && export OPENSSL_CONF && (" + command +
                             ") > output.txt 2>&1";
    return std::system(line.c_str()); // NOLINT(cert-env33-c,concurrency-mt-unsafe): a test's own command
}

std::string output(const TempFolder& folder) {
    const Bytes text = readFile(folder.path() / "output.txt");
    return {text.begin(), text.end()};
}

} // namespace klunortredi::test
