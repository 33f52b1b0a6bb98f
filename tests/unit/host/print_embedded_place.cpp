// Prints where the framework finds the library for CryptoPro's slot: in a process of its own the framework's library
// can lie elsewhere.
#include "orvik/plugin/path_registry.hpp"

#include <iostream>

int main() {
    std::cout << orvik::plugin::PathRegistry::cryptoProResourceFile().string();
}
