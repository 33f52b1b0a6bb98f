#pragma once

#include "support/openssl.hpp"
#include "support/temp_folder.hpp"

#include <string>
#include <vector>

namespace test_support {

/// Throw-away authorities by openssl, with ECDSA keys: they are quick to make. A certificate called NAME lies in
/// NAME.pem with its key in NAME.key, a list in ISSUER.crl (PEM).
class Pki {
public:
    Pki(const TempFolder& folder, const Openssl& openssl) : folder_(folder), openssl_(openssl) {}

    /// A self-signed authority.
    void root(const std::string& name) const {
        make(name, {"-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign",
                    "-addext", "subjectKeyIdentifier=hash"});
    }

    /// An authority below another.
    void authority(const std::string& name, const std::string& issuer, int serial) const {
        issue(name, issuer, serial,
              {"basicConstraints=critical,CA:TRUE", "keyUsage=critical,keyCertSign,cRLSign",
               "subjectKeyIdentifier=hash"});
    }

    /// Any certificate below an authority; `key` is what openssl makes it of.
    void issue(const std::string& name, const std::string& issuer, int serial,
               const std::vector<std::string>& extensions = {"keyUsage=critical,digitalSignature"},
               const std::string& key = "ec") const {
        std::vector<std::string> words{"-CA",           issuer + ".pem", "-CAkey",
                                       issuer + ".key", "-set_serial",   std::to_string(serial)};
        for (const std::string& extension : extensions) {
            words.insert(words.end(), {"-addext", extension});
        }
        make(name, words, key);
    }

    /// A list in which the serial numbers (two hexadecimal digits each) are revoked since 2026-01-02 for a compromised
    /// key. `extensions` are further lines of the list's extensions, as in openssl.cnf.
    void list(const std::string& issuer, const std::vector<std::string>& revoked, const std::string& number = "01",
              const std::string& days = "5", const std::string& extensions = "") const {
        std::string index;
        for (const std::string& serial : revoked) {
            index += "R\t491231000000Z\t260102030405Z,keyCompromise\t" + serial + "\tunknown\t/CN=x\n";
        }
        folder_.write("index.txt", index);
        folder_.write("index.txt.attr", "unique_subject = no\n");
        folder_.write("crlnumber", number + "\n");
        folder_.write("crl.cnf", "[ca]\ndefault_ca=d\n[d]\ndatabase=index.txt\ncrlnumber=crlnumber\n"
                                 "default_md=sha256\ncrl_extensions=e\n[e]\nauthorityKeyIdentifier=keyid\n" +
                                     extensions);
        openssl_.must({"ca", "-config", "crl.cnf", "-gencrl", "-crldays", days, "-keyfile", issuer + ".key", "-cert",
                       issuer + ".pem", "-out", issuer + ".crl"});
    }

private:
    void make(const std::string& name, const std::vector<std::string>& words, const std::string& key = "ec") const {
        std::vector<std::string> command{"req",         "-x509",       "-newkey", key,           "-nodes",
                                         "-keyout",     name + ".key", "-out",    name + ".pem", "-subj",
                                         "/CN=" + name, "-days",       "20",      "-sha256"};
        if (key == "ec") {
            command.insert(command.end(), {"-pkeyopt", "ec_paramgen_curve:P-256"});
        }
        command.insert(command.end(), words.begin(), words.end());
        openssl_.must(command);
    }

    const TempFolder& folder_;
    const Openssl& openssl_;
};

} // namespace test_support
