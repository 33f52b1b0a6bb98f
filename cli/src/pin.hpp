#pragma once

/// The PIN dialogue of the command.

#include "failure.hpp"
#include "pin_source.hpp"

#include <cstdint>
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

    /// A container's PIN outside a login, and the one that it is to have. Throw Failure: as PinSource does, or for a
    /// PIN that cannot be used (exit 2).
    std::string ask(const std::string& prompt) { return checkedPin(source_.ask(prompt)); }
    std::string askNew(const std::string& prompt) { return checkedPin(source_.askNew(prompt)); }

    /// Tells how many tries are left, where the service knows it.
    void setTriesLeft(std::function<std::optional<unsigned>()> triesLeft);

    /// The failure to report after a login was refused: cancelled, no source, wrong or locked, or what kept the service
    /// from judging the PIN.
    [[nodiscard]] Failure refusal(const std::string& what) const;

private:
    enum class Outcome { none, cancelled, noSource, wrong, notJudged };

    std::optional<std::string> answer(const std::string& container, unsigned attempt);

    PinSource source_;
    std::function<std::optional<unsigned>()> triesLeft_;
    Outcome outcome_ = Outcome::none;
    std::optional<Failure> sourceFailure_;
    std::uint32_t trouble_ = 0; ///< of notJudged
};

} // namespace klunortredi::cli
