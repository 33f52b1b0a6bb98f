#pragma once

/// A container and the request for its key come about together, although they are two things on disk.

#include "installed.hpp"
#include "output_file.hpp"

#include <string>
#include <string_view>

namespace klunortredi::cli {

/// The moment between a new container and its request. From begin() on the request's file stands there under a name
/// that is derived from the container's, until it gets its real name. A run that is killed between leaves that file,
/// and the next run for the same output and container finds it.
///
/// A file's name proves nothing about a key. The container is deleted only when the file holds a request for its key
/// and no certificate for that key is installed, so that nobody can have got the request. A file that was left before
/// the request was written says nothing about the container, which stays.
class UnfinishedRequest {
public:
    /// Clears away what a killed run for the same output and container left. Throws Failure when the container is there
    /// already (exit 4), and while another process makes it or when another user's file has the name (exit 3).
    UnfinishedRequest(OutputFile& out, ProviderPtr provider, std::string container);

    /// To be called before the container is made.
    void begin();
    /// Deletes the container again, as far as that goes: its request (PKCS#10, DER) could not be written. A container
    /// of another key stays.
    void abandon(std::string_view request) const noexcept;

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
