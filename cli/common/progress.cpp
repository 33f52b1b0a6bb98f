#include "progress.hpp"

#include <array>
#include <cstdio>
#include <utility>

namespace klunortredi::cli {

namespace {
constexpr int barWidth = 30;
constexpr auto patience = std::chrono::seconds(1); // shorter work needs no bar
constexpr auto redraw = std::chrono::milliseconds(100);
} // namespace

Progress::Progress(bool shown, std::string label, std::uint64_t total)
    : shown_(shown), label_(std::move(label)), total_(total), nextDraw_(Clock::now() + patience) {}

Progress::~Progress() {
    if (drawn_) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::advance(std::uint64_t octets) {
    done_ += octets;
    if (!shown_ || Clock::now() < nextDraw_) {
        return;
    }
    nextDraw_ = Clock::now() + redraw;
    drawn_ = true;
    const double mebibytes = static_cast<double>(done_) / (1024.0 * 1024.0);
    if (total_ == 0) {
        std::fprintf(stderr, "\r%s  %.0f MiB\033[K", label_.c_str(), mebibytes);
        return;
    }
    const double share = done_ >= total_ ? 1.0 : static_cast<double>(done_) / static_cast<double>(total_);
    const int filled = static_cast<int>(share * barWidth);
    const std::string bar = std::string(static_cast<std::size_t>(filled), '#') +
                            std::string(static_cast<std::size_t>(barWidth - filled), '.');
    std::fprintf(stderr, "\r%s  [%s] %3.0f %%  %.0f MiB\033[K", label_.c_str(), bar.c_str(), share * 100.0, mebibytes);
}

} // namespace klunortredi::cli
