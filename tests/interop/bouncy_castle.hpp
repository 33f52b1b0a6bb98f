#pragma once

#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <string>
#include <vector>

namespace interop {

/// Bouncy Castle, driven by a Java program of tests/interop/java that is compiled into `folder` on construction.
class BouncyCastle {
public:
    /// What this machine lacks to run it (a compiler, an archive of classes); empty when nothing.
    static std::string lacks();

    /// Throws std::runtime_error with the compiler's words when `program` ("CmsTool") cannot be compiled.
    BouncyCastle(const test_support::TempFolder& folder, std::string program);

    /// Runs the program in the folder. Gives its standard output, a string for each line; throws with its standard
    /// error when it fails.
    [[nodiscard]] std::vector<std::string> run(const std::vector<std::string>& arguments) const;

private:
    const test_support::TempFolder& folder_;
    std::string program_;
};

} // namespace interop
