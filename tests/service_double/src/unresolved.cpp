// An entry point that needs a function which no library has: a service that lacks a part of itself.

extern "C" int functionOfNoLibrary();

extern "C" __attribute__((visibility("default"))) int CryptOfAMissingPart();
extern "C" int CryptOfAMissingPart() {
    return functionOfNoLibrary();
}
