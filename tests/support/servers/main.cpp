// The servers as a program, for demonstrations and measurements: test_servers FOLDER [KIND]. Writes root.pem, the root
// certificate, into the folder, prints the URL of the server, and serves until standard input ends.

#include "support/servers/authority.hpp"

#include <exception>
#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: test_servers FOLDER [ec|rsa|gost2012_256|gost2012_512]\n";
        return 2;
    }
    try {
        test_servers::Authority authority(test_servers::keyKind(argc == 3 ? argv[2] : "gost2012_256"));
        std::ofstream root(std::string(argv[1]) + "/root.pem");
        root << authority.rootPem();
        root.close();
        if (!root) {
            std::cerr << "cannot write root.pem\n";
            return 1;
        }
        std::cout << authority.url("") << std::endl;
        while (std::cin.get() != std::istream::traits_type::eof()) {
        }
        return 0;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
