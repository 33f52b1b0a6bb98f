#pragma once

/// The verbs: each takes what the command line said and answers with the process's exit code; failures are thrown.

#include "admin_options.hpp"
#include "console.hpp"
#include "exit_code.hpp"
#include "key_files.hpp"

#include <string>

namespace klunortredi::admin {

/// What every verb works with.
struct Session {
    const AdminOptions& options;
    const cli::Console& console;
};

/// Which container.
struct ContainerArguments {
    std::string name;     ///< empty, for the verbs that allow it: all
    std::string provider; ///< empty: any
};

struct ImportArguments {
    KeyFiles files;
    std::string name; ///< empty: the key's friendly name, else the file's name
    bool exportable = false;
};

/// A PKCS#12 file whose certificates are shown.
struct CertificatesArguments {
    std::string file;
};

struct ExportArguments : ContainerArguments {
    std::string out; ///< empty: the container's name and .p12
};

/// Revocation lists of a store.
struct CrlArguments {
    std::string store = "ca";
    std::string which; ///< the file to add, or which list to delete
};

cli::ExitCode addCrl(Session& session, const CrlArguments& arguments);
cli::ExitCode listCrls(Session& session, const CrlArguments& arguments);
cli::ExitCode deleteCrl(Session& session, const CrlArguments& arguments);

cli::ExitCode list(Session& session, const ContainerArguments& arguments);
cli::ExitCode importKey(Session& session, const ImportArguments& arguments);
cli::ExitCode listCertificates(Session& session, const CertificatesArguments& arguments);
cli::ExitCode exportKey(Session& session, const ExportArguments& arguments);
cli::ExitCode changePin(Session& session, const ContainerArguments& arguments);
cli::ExitCode check(Session& session, const ContainerArguments& arguments);
cli::ExitCode unlockTries(Session& session, const ContainerArguments& arguments);

} // namespace klunortredi::admin
