#pragma once

/// Where PINs and passwords come from: a file, the environment, a descriptor, or the terminal.

#include "options.hpp"

#include <optional>
#include <string>

namespace klunortredi::cli {

class PinSource {
public:
    /// `word` is what the secret is called in prompts and errors ("PIN"), `option` the stem of the options that give it
    /// ("--pin").
    explicit PinSource(const PinOptions& options, std::string word = "PIN", std::string option = "--pin");

    /// Whether a person is asked. Otherwise every answer is the same one.
    [[nodiscard]] bool fromTerminal() const noexcept;

    /// None when the person cancels (Ctrl-D, or an empty answer). Throws Failure: no terminal (exit 2), a source that
    /// cannot be read (exit 3).
    std::optional<std::string> answer(const std::string& prompt);
    /// The same; cancelling throws Failure (exit 5).
    std::string ask(const std::string& prompt);
    /// A secret that is to be set: asked for twice on a terminal. Throws Failure (exit 2) when the two differ.
    std::string askNew(const std::string& prompt);

private:
    std::string fixed();
    [[nodiscard]] std::optional<std::string> askTerminal(const std::string& prompt) const;
    [[nodiscard]] std::string readLine(int fd, const std::string& name) const;

    const PinOptions& options_;
    std::string word_;
    std::string option_;
    std::optional<std::string> fixed_; ///< what the file, variable or descriptor said; read once
};

/// The PIN. Throws Failure (exit 2) for one that the service never takes at a login, which no container should
/// therefore get: it ends a PIN at the first zero octet, and none is longer than 255.
std::string checkedPin(std::string pin);

} // namespace klunortredi::cli
