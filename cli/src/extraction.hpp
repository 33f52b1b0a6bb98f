#pragma once

#include "output_file.hpp"
#include "spool.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace klunortredi::cli {

class Input;

/// The content of a message on its way out. Nothing of it can be seen under its name, on
/// standard output, in a pipe or on a device before commit().
class Extraction {
public:
    /// Opens the target; "-" is standard output. Throws Failure: the target is the signature itself (exit 2), a pipe, a
    /// device or a terminal without `force` (exit 3); what OutputFile throws (exit 3).
    Extraction(const std::string& path, bool force, const Input& signature, Readers readers = Readers::usual);

    /// Throws Failure (exit 3), also for a full disk.
    void write(std::string_view octets);
    /// Passes the content on: call it once everything was judged.
    void commit();

private:
    std::unique_ptr<OutputFile> target_;
    std::unique_ptr<Spool> spool_; ///< where the target shows at once what is written
};

} // namespace klunortredi::cli
