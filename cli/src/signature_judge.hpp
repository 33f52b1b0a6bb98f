#pragma once

/// The verdict of `verify` on one file.

#include "certificates.hpp"
#include "failure.hpp"
#include "requirement.hpp"
#include "trust.hpp"
#include "verbs/verbs.hpp"
#include "verdict.hpp"

#include <functional>
#include <optional>
#include <string>

namespace klunortredi::cli {

class CmsVerification;
class Input;

/// What came of one file: a verdict, or the failure that kept it from being judged.
struct FileReport {
    std::string name; ///< of the file, for messages
    ExitCode exit = ExitCode::done;
    std::optional<Verdict> verdict;
    std::optional<Failure> failure; ///< there when `verdict` is not
};

/// Judges one file after another by the same options. What they name is read once.
class SignatureJudge {
public:
    /// Called when the signature is open, before any work is done.
    using Opened = std::function<void(const Input& signature)>;

    /// Both outlive this. Throws Failure for options that cannot be used, or name what cannot be read.
    SignatureJudge(Session& session, const VerifyArguments& arguments);

    /// Everything that goes wrong is in the report. `opened` may throw too. With --extract the content is at its place
    /// when this returns exit code 0.
    FileReport judge(const std::string& file, const Opened& opened) const;

private:
    static Verdict verdictOn(CmsVerification& message, const std::string& name);
    ExitCode complete(Verdict& verdict) const;

    Session& session_;
    const VerifyArguments& arguments_;
    CertificatePtr signerCertificate_; ///< of --signer-cert, else null
    Requirement requirement_;
    ChainQuery chainQuery_; ///< with --chain
};

} // namespace klunortredi::cli
