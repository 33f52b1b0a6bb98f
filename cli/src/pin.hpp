#pragma once

/// Where PINs come from.

#include "failure.hpp"
#include "options.hpp"

#include <functional>
#include <optional>
#include <string>

namespace klunortredi::cli {

/// Answers every request for a PIN in this process, and remembers how it went: the plug-in only learns "not logged in".
class PinDialog {
public:
    explicit PinDialog(const PinOptions& options);
    PinDialog(const PinDialog&) = delete;
    PinDialog& operator=(const PinDialog&) = delete;
    ~PinDialog();

    /// Makes this the dialogue of the framework.
    void install();

    /// A PIN asked for outside a login. Throws Failure: cancelled, or no terminal.
    std::string ask(const std::string& prompt);
    /// The PIN of a container to be made: on a terminal it is asked for twice.
    std::string askNew(const std::string& container);

    /// Tells how many tries are left, where the service knows it.
    void setTriesLeft(std::function<std::optional<unsigned>()> triesLeft);

    /// The failure to report after a login was refused: cancelled, no source, wrong or locked.
    [[nodiscard]] Failure refusal(const std::string& what) const;
    /// Whether a PIN was given and turned out wrong.
    [[nodiscard]] bool refused() const noexcept { return outcome_ != Outcome::none; }

private:
    enum class Outcome { none, cancelled, noSource, wrong };

    [[nodiscard]] bool fromTerminal() const noexcept;
    std::optional<std::string> answer(const std::string& container, unsigned attempt);
    [[nodiscard]] std::string fixedPin() const;

    const PinOptions& options_;
    std::function<std::optional<unsigned>()> triesLeft_;
    Outcome outcome_ = Outcome::none;
    std::optional<Failure> sourceFailure_;
    mutable std::string fixed_; ///< what the file, variable or descriptor said; read once
    mutable bool fixedRead_ = false;
};

} // namespace klunortredi::cli
