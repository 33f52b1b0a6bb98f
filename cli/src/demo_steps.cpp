#include "demo_steps.hpp"

#include <algorithm>
#include <iterator>

namespace klunortredi::cli {

namespace {

const char* const self = "klunortredi";

std::vector<DemoStep> timestampSteps(const std::string& authority) {
    return {
        {"A time-stamp on the detached signature",
         {self, "timestamp", "report.txt.sig", "--url", authority, "--out", "stamped.sig"}},
        {"We check signature and time-stamp", {self, "verify", "stamped.sig", "--content", "report.txt"}},
        {"OpenSSL checks the signature with the time-stamp in it",
         {"openssl", "cms", "-verify", "-inform", "DER", "-in", "stamped.sig", "-content", "report.txt", "-binary",
          "-CAfile", "ca.pem", "-out", "/dev/null"}},
    };
}

} // namespace

std::vector<DemoStep> demoSteps(const std::string& authority) {
    std::vector<DemoStep> steps{
        {"The service that is in use, and its providers", {self, "info"}},
        {"A new key pair in a new container with a PIN, and a certificate request for it",
         {self, "request", "--container", "demo", "--subject", "CN=Demo Signer;C=RU", "--pin-file", "pin.txt", "--out",
          "demo.csr"}},
        {"OpenSSL reads the request and checks its signature",
         {"openssl", "req", "-inform", "DER", "-in", "demo.csr", "-verify", "-noout"}},
        {"A throw-away certification authority",
         {"openssl", "req", "-x509", "-newkey", "gost2012_256", "-pkeyopt", "paramset:A", "-nodes", "-keyout", "ca.key",
          "-out", "ca.pem", "-subj", "/CN=Throw-away CA", "-days", "30", "-extensions", "ca_extensions"}},
        {"It issues the certificate",
         {"openssl",  "x509",    "-req",     "-inform",     "DER",         "-in",
          "demo.csr", "-CA",     "ca.pem",   "-CAkey",      "ca.key",      "-CAcreateserial",
          "-days",    "30",      "-extfile", "openssl.cnf", "-extensions", "signer_extensions",
          "-out",     "demo.pem"}},
        {"The certificate goes into its container and into store my",
         {self, "install", "demo.pem", "--container", "demo", "--pin-file", "pin.txt"}},
        {"A detached signature", {self, "sign", "report.txt", "--cert", "Demo Signer", "--pin-file", "pin.txt"}},
        {"An attached signature",
         {self, "sign", "report.txt", "--cert", "Demo Signer", "--format", "attached", "--pin-file", "pin.txt"}},
        {"We check the detached one", {self, "verify", "report.txt.sig"}},
        {"OpenSSL checks the detached one",
         {"openssl", "cms", "-verify", "-inform", "DER", "-in", "report.txt.sig", "-content", "report.txt", "-binary",
          "-CAfile", "ca.pem", "-out", "/dev/null"}},
        {"We check the attached one, and take its content out",
         {self, "verify", "report.txt.p7s", "--extract", "report.extracted.txt"}},
        {"OpenSSL checks the attached one",
         {"openssl", "cms", "-verify", "-inform", "DER", "-in", "report.txt.p7s", "-binary", "-CAfile", "ca.pem",
          "-out", "/dev/null"}},
        {"The authority is not trusted yet, so the chain is not", {self, "verify", "report.txt.sig", "--chain"}, 8},
        {"With the authority in store root it is", {self, "certs", "add", "ca.pem", "--store", "root"}},
        {"The same check again", {self, "verify", "report.txt.sig", "--chain"}},
        {"A changed file is refused", {self, "verify", "report.txt.sig", "--content", "changed.txt"}, 1},
    };
    if (!authority.empty()) {
        std::ranges::move(timestampSteps(authority), std::back_inserter(steps));
    }
    return steps;
}

std::string demoOpensslConfiguration() {
    return R"(openssl_conf = demo
[demo]
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
)";
}

} // namespace klunortredi::cli
