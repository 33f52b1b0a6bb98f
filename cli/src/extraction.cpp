#include "extraction.hpp"

#include "failure.hpp"
#include "input.hpp"
#include "same_file.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace klunortredi::cli {

namespace {

/// A place that shows at once what is written: a pipe, a device, a terminal.
bool showsAtOnce(const std::string& path) {
    struct stat status {};
    if (path == "-") {
        return true;
    }
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

} // namespace

Extraction::Extraction(const std::string& path, bool force, const Input& signature, Readers readers) {
    if (signature.isFile(path)) {
        throw Failure(ExitCode::usage, "cannot write " + path, "--extract names the signature itself");
    }
    const bool isDevice = path != "-" && showsAtOnce(path);
    const bool isTerminal = path == "-" && ::isatty(STDOUT_FILENO) != 0;
    if (!force && (isDevice || isTerminal)) {
        throw Failure(ExitCode::input, "cannot write " + (isTerminal ? std::string("standard output") : path),
                      isTerminal ? "it is a terminal" : "it is a pipe or a device", "--force writes there");
    }
    const bool isOutput = isStandardOutput(path);
    target_ = std::make_unique<OutputFile>(isOutput ? "-" : path, force, readers);
    if (isOutput || showsAtOnce(path)) {
        spool_ = std::make_unique<Spool>();
    }
}

void Extraction::write(std::string_view octets) {
    if (spool_) {
        spool_->write(octets);
    } else {
        target_->write(octets);
    }
}

void Extraction::commit() {
    if (spool_) {
        spool_->copyTo(*target_);
    }
    target_->commit();
}

} // namespace klunortredi::cli
