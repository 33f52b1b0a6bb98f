#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace klunortredi::cli {

/// A progress bar on standard error, drawn only once the work has lasted over a second.
class Progress {
public:
    /// `total` in octets, 0 when unknown. `shown` false makes the object inert.
    Progress(bool shown, std::string label, std::uint64_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Wipes the bar off the line.
    ~Progress();

    void advance(std::uint64_t octets);

private:
    using Clock = std::chrono::steady_clock;

    bool shown_;
    bool drawn_ = false;
    std::string label_;
    std::uint64_t total_;
    std::uint64_t done_ = 0;
    Clock::time_point nextDraw_;
};

} // namespace klunortredi::cli
