#include "pending_outputs.hpp"

#include "current_failure.hpp"

#include <map>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr std::size_t mostFiles = 128;                       // descriptors that stay open, twice
constexpr std::uint64_t mostOctets = 4UL * 1024 * 1024;      // beyond it the work takes longer than the disk
constexpr auto longestWait = std::chrono::milliseconds(500); // until a file goes to the disk

/// What a step comes to: nothing, or its failure.
template <class Step>
std::optional<Failure> outcomeOf(Step&& step) {
    try {
        step();
        return std::nullopt;
    } catch (...) {
        return currentFailure("cannot write the batch");
    }
}

/// File systems that were synchronised, with what came of it.
using Synced = std::map<std::uint64_t, std::optional<Failure>>;

/// Synchronises the file's file system unless that was done; throws its failure for each file.
void syncOnce(Synced& synced, const OutputFile& file) {
    const auto [system, isNew] = synced.try_emplace(file.fileSystem());
    if (isNew) {
        system->second = outcomeOf([&] { file.syncFileSystem(); });
    }
    if (system->second) {
        throw Failure(*system->second);
    }
}

} // namespace

void PendingOutputs::add(std::unique_ptr<OutputFile> file, Done done) {
    if (group_.empty()) {
        oldest_ = Clock::now();
    }
    octets_ += file ? file->size() : 0;
    group_.push_back({std::move(file), std::move(done), {}});
}

void PendingOutputs::flushWhenFull() {
    const bool full = group_.size() >= mostFiles || octets_ >= mostOctets || Clock::now() - oldest_ >= longestWait;
    if (full && !group_.empty()) {
        report();
        send();
    }
}

void PendingOutputs::finish() {
    report();
    send();
    report();
}

/// The group after its files have reached the disk and have got their names, or have failed to.
PendingOutputs::Group PendingOutputs::settled(Group group) {
    Synced synced;
    for (Entry& entry : group) {
        if (!entry.file) {
            continue;
        }
        entry.failure = outcomeOf([&] {
            if (group.size() == 1) {
                entry.file->commit();
                return;
            }
            syncOnce(synced, *entry.file);
            entry.file->publish();
        });
    }
    synced.clear(); // now for the names
    for (Entry& entry : group) {
        if (!entry.file || entry.failure || group.size() == 1) {
            continue;
        }
        entry.failure = outcomeOf([&] { syncOnce(synced, *entry.file); });
    }
    return group;
}

void PendingOutputs::send() {
    octets_ = 0;
    if (group_.empty()) {
        return;
    }
    sent_ =
        std::async(group_.size() == 1 ? std::launch::deferred : std::launch::async, settled, std::exchange(group_, {}));
}

void PendingOutputs::report() {
    if (!sent_.valid()) {
        return;
    }
    for (const Entry& entry : sent_.get()) {
        entry.done(entry.failure);
    }
}

} // namespace klunortredi::cli
