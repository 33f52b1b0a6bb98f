#pragma once

/// The verbs: each takes what the command line said and answers with the process's exit code; failures are thrown.

#include "chain_options.hpp"
#include "exit_code.hpp"
#include "file_names.hpp"
#include "options.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

class Console;
class PinDialog;

/// What every verb works with.
struct Session {
    const Options& options;
    const Console& console;
    PinDialog& pin;
};

ExitCode info(Session& session);
ExitCode providers(Session& session);

struct ContainersArguments {
    std::string provider; ///< empty: all
    std::string name;     ///< of `delete`
    bool yes = false;     ///< `delete` does not ask
};
ExitCode listContainers(Session& session, const ContainersArguments& arguments);
ExitCode deleteContainer(Session& session, const ContainersArguments& arguments);

struct RequestArguments {
    std::string container;
    std::string subject;
    std::string provider;
    std::string paramSet;
    std::string keyUsage; ///< comma-separated; empty: the usual ones, or with `renew` those of the certificate
    std::vector<std::string> enhancedKeyUsage;
    std::vector<std::string> policies;
    std::vector<std::string> dnsNames;
    std::vector<std::string> emailNames;
    std::string userPrincipalName;
    std::string identification; ///< a name of the table in request.cpp; empty: none
    unsigned keyDays = 0;       ///< validity of the private key from now; 0: not stated
    bool exportable = false;
    bool withoutMachineInfo = false; ///< the request does not name the machine, its user and its system
    std::string templateFile;        ///< says what the command line does not; empty: none
    bool renew = false;              ///< the key is there, and its certificate names the subject
    bool list = false;               ///< show which keys can be made, and make none
    std::string out;
};
ExitCode request(Session& session, const RequestArguments& arguments);

struct InstallArguments {
    std::string certificate; ///< a file
    std::string container;   ///< empty: the one that has the key
    std::string provider;
};
ExitCode install(Session& session, const InstallArguments& arguments);

struct CertsArguments {
    std::string store = "my";
    std::string provider; ///< not empty: the certificates of this provider's containers instead of a store's
    std::string which;
    std::string out = "-"; ///< of `export`
    std::string name;      ///< of `set-name`
    PinOptions password;   ///< of `add`: opens a PKCS#12 file
    std::string expiring;  ///< of `list`: only those that end within so many days ("30d"); empty: all
};
/// Throws Failure (exit 2) when a provider is named, which `certs VERB` does not take.
void refuseProvider(const CertsArguments& arguments, const char* verb);
ExitCode listCertificates(Session& session, const CertsArguments& arguments);
ExitCode showCertificate(Session& session, const CertsArguments& arguments);
ExitCode addCertificate(Session& session, const CertsArguments& arguments);
ExitCode deleteCertificate(Session& session, const CertsArguments& arguments);
ExitCode nameCertificate(Session& session, const CertsArguments& arguments);
ExitCode exportCertificate(Session& session, const CertsArguments& arguments);

/// Who signs, and in which form.
struct SignerArguments {
    std::string certificate;
    bool byKeyIdentifier = false;      ///< the signer is named by the certificate's subject key identifier
    bool pss = false;                  ///< RSASSA-PSS
    bool strict = false;               ///< a certificate that is not valid now does not sign
    bool noSigningCertificate = false; ///< signatures do not name the certificate in what they sign (CAdES, XAdES)
};

struct SignArguments {
    NamedFiles files;
    SignerArguments signer;
    std::string format = "detached";
    std::vector<std::string> attributes; ///< OID=TYPE:VALUE
    std::string out;
    std::string outDir;
    bool keepGoing = false;
    bool skipExisting = false;           ///< a file whose signature is there is left as it is
    bool includeChain = false;           ///< the message carries the signer's issuers
    std::vector<std::string> timestamps; ///< addresses of time-stamp authorities, asked in turn; empty: no time-stamp
};
ExitCode sign(Session& session, const SignArguments& arguments);

struct CosignArguments {
    std::string file;
    SignerArguments signer;
    std::string content; ///< of a detached message; empty: the file beside it
    std::string out;     ///< empty: the file itself
};
ExitCode cosign(Session& session, const CosignArguments& arguments);

struct TimestampArguments {
    std::string file;
    std::vector<std::string> urls; ///< of authorities, asked in turn
    std::string out;               ///< empty: the signature itself, with --force
};
ExitCode timestamp(Session& session, const TimestampArguments& arguments);

struct VerifyArguments {
    NamedFiles files;
    std::string content;
    std::string format;
    std::string signerCertificate;
    std::string extract;
    std::string jsonOut;
    std::vector<std::string> require; ///< empty: all; further thumbprints may stand among the files
    bool chain = false;
    bool allowPartial = false; ///< a signature over a part of an XML document is valid
    ChainOptions chainOptions;
    bool strict = false;
};
ExitCode verify(Session& session, const VerifyArguments& arguments);

struct EncryptArguments {
    std::string file;
    std::vector<std::string> to; ///< files, or which certificates of the stores
    std::string cipher;          ///< empty: by the recipients' keys
    std::string out;
    bool anyCertificate = false; ///< expired ones and those for other uses too
};
ExitCode encrypt(Session& session, const EncryptArguments& arguments);

struct DecryptArguments {
    std::string file;
    std::string certificate; ///< of store my; empty: the one that the message is for
    std::string out;
};
ExitCode decrypt(Session& session, const DecryptArguments& arguments);

struct ChainArguments {
    std::string which; ///< a file, or which certificate of store my
    ChainOptions options;
};
ExitCode chain(Session& session, const ChainArguments& arguments);

struct HashArguments {
    std::string file;
    std::string algorithm = "1.2.643.7.1.1.2.2";
};
ExitCode hash(Session& session, const HashArguments& arguments);

struct RandomArguments {
    unsigned long count = 0;
    bool base64 = false;
    bool hex = false;
};
ExitCode random(Session& session, const RandomArguments& arguments);

struct DemoArguments {
    std::string authority; ///< URL; empty: no time-stamp
};
ExitCode demo(Session& session, const DemoArguments& arguments);

} // namespace klunortredi::cli
