#pragma once

/// Checking of one CMS message: every signer, against the content inside or beside it.

#include "certificates.hpp"
#include "comparison.hpp"
#include "extraction.hpp"
#include "message_octets.hpp"
#include "verbs/verbs.hpp"
#include "verdict.hpp"

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace klunortredi::cli {

class Input;

class CmsVerification {
public:
    /// `signature` stands at its first octet and outlives this. `signerCertificate` is that of --signer-cert, else
    /// null.
    CmsVerification(Session& session, const VerifyArguments& arguments, Input& signature, bool detached,
                    CertificatePtr signerCertificate);
    CmsVerification(const CmsVerification&) = delete;
    CmsVerification& operator=(const CmsVerification&) = delete;
    ~CmsVerification();

    /// Judges every signer; chains are not judged. The document's verdict says only what was found besides the signers
    /// (other content, a certificate that no signer has), else valid: the caller decides which signers are required.
    /// Throws Failure and SystemException when the message or its content cannot be read.
    Verdict run();
    /// DER of certificates beside the message, among which those of time-stamp authorities may be. They outlive this.
    void offerCertificates(const std::vector<std::string>& certificates) { offered_ = &certificates; }
    /// Shows the content of an attached signature to `watcher` as it passes, before anything is known of its validity.
    /// What it throws ends run().
    void watchContent(std::function<void(std::string_view octets)> watcher) { watcher_ = std::move(watcher); }
    /// Where the content of a detached signature lies when nobody says: the file "x" beside "x.sig"; empty without one.
    /// A pipe or a device is not meant: whoever made the folder could keep the command waiting there for ever.
    [[nodiscard]] static std::string contentBeside(const std::string& file);
    /// Where the content of an attached signature goes; null without --extract.
    [[nodiscard]] Extraction* extraction() const noexcept { return extraction_.get(); }

private:
    void openContent();
    std::vector<SignerVerdict> check();
    bool take(std::string_view octets);
    void lookAround(Tail tail);
    void judgeSigners(const std::vector<SignerVerdict>& verdicts);

    Session& session_;
    const VerifyArguments& arguments_;
    Input& signature_;
    bool detached_;
    CertificatePtr outside_;
    const std::vector<std::string>* offered_ = nullptr;
    std::unique_ptr<Input> content_;
    std::unique_ptr<Comparison> comparison_;
    std::unique_ptr<Extraction> extraction_;
    std::function<void(std::string_view)> watcher_;
    std::exception_ptr failure_; ///< of our own work while the service passes content on
    Verdict verdict_;
};

} // namespace klunortredi::cli
