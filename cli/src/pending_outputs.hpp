#pragma once

/// Outputs of a batch between the work on them and the disk.

#include "failure.hpp"
#include "output_file.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <vector>

namespace klunortredi::cli {

/// Lets the files of a batch reach the disk in groups, while the work on the next ones goes on: waiting for each small
/// file by itself takes many times longer than making it. A file gets its name after it has reached the disk, so that a
/// process that is killed leaves only whole files.
class PendingOutputs {
public:
    /// Called when the file has reached the disk and has its name, or with what kept it from that; in the order of
    /// add(), in the thread that calls the functions of this class.
    using Done = std::function<void(const std::optional<Failure>&)>;

    /// `file` may be null: then nothing has to be written, and `done` has its turn after those before it.
    void add(std::unique_ptr<OutputFile> file, Done done);
    /// Sends the group to the disk when it is large or old enough; reports the group before it. Throws what `done`
    /// throws.
    void flushWhenFull();
    /// The same for everything that was added; all of it is reported afterwards.
    void finish();

private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        std::unique_ptr<OutputFile> file;
        Done done;
        std::optional<Failure> failure;
    };
    using Group = std::vector<Entry>;

    static Group settled(Group group);
    void send();
    void report();

    Group group_;
    std::future<Group> sent_;
    Clock::time_point oldest_;
    std::uint64_t octets_ = 0;
};

} // namespace klunortredi::cli
