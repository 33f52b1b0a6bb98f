#pragma once

/// A container and the request for its key come about together, although they are two things on disk.

#include "installed.hpp"
#include "output_file.hpp"

#include <string>

namespace klunortredi::cli {

/// The moment between a new container and its request. From begin() on the request's file stands there under a name
/// that tells of the container, until it gets its real name: a run killed between leaves a container whose request
/// nobody ever got, and the next run for it knows by that name that the key in it is of no use.
class UnfinishedRequest {
public:
    /// Clears away what a killed run for the same output and container left. Throws Failure when the container is there
    /// already (exit 4), and while another process makes it (exit 3).
    UnfinishedRequest(OutputFile& out, ProviderPtr provider, std::string container);

    /// To be called before the container is made.
    void begin();
    /// Deletes the container again, as far as that goes: its request could not be written.
    void abandon() const noexcept;

    /// Whether a container of a killed run was deleted.
    [[nodiscard]] bool deletedContainer() const noexcept { return deletedContainer_; }

private:
    void clear();

    OutputFile& out_;
    ProviderPtr provider_;
    std::string container_;
    std::string name_; ///< of the file meanwhile
    bool deletedContainer_ = false;
};

} // namespace klunortredi::cli
