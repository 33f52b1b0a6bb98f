#include "support/openssl.hpp"

#include <stdexcept>

namespace test_support {

namespace {

constexpr const char* configuration = R"(openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
default_algorithms = ALL
[req]
distinguished_name = name
[name]
[ca_extensions]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[signer_extensions]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, nonRepudiation
extendedKeyUsage = emailProtection
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[encipher_extensions]
keyUsage = critical, keyEncipherment
[bare_extensions]
basicConstraints = CA:FALSE
)";

} // namespace

Openssl::Openssl(const TempFolder& folder) : folder_(folder) {
    folder.write("openssl.cnf", configuration);
}

Outcome Openssl::run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{"openssl"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    RunOptions options;
    options.environment = {{"OPENSSL_CONF", folder_ / "openssl.cnf"}};
    options.folder = folder_.path();
    return test_support::run(command, options);
}

void Openssl::must(const std::vector<std::string>& arguments) const {
    const Outcome result = run(arguments);
    if (result.exit != 0) {
        throw std::runtime_error("openssl " + arguments.front() + " failed: " + result.err);
    }
}

void Openssl::makeAuthority(const std::string& algorithm) const {
    std::vector<std::string> command{"req",         "-x509",  "-newkey", algorithm,     "-nodes",
                                     "-keyout",     "ca.key", "-out",    "ca.pem",      "-subj",
                                     "/CN=Test CA", "-days",  "30",      "-extensions", "ca_extensions"};
    if (algorithm.starts_with("gost")) {
        command.insert(command.end(), {"-pkeyopt", "paramset:A"});
    }
    if (algorithm == "ec") {
        command.insert(command.end(), {"-pkeyopt", "ec_paramgen_curve:P-256"});
    }
    must(command);
}

void Openssl::issue(const std::string& csr, const std::string& out, const std::string& extensions) const {
    must({"x509", "-req", "-inform", "DER", "-in", csr, "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-days",
          "30", "-extfile", "openssl.cnf", "-extensions", extensions, "-out", out});
}

} // namespace test_support
