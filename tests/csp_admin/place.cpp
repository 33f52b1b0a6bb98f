#include "csp_admin/place.hpp"

#include <stdexcept>

namespace admin_test {

namespace {

void must(const Outcome& outcome, const std::string& what) {
    if (outcome.exit != 0) {
        throw std::runtime_error(what + " failed: " + outcome.out + outcome.err);
    }
}

} // namespace

Place::Place() : openssl_(folder_) {
    folder_.write("pin.txt", "12345678\n");
    folder_.write("other-pin.txt", "87654321\n");
    folder_.write("wrong.txt", "00000000\n");
    folder_.write("password.txt", "secret\n");
    folder_.write("report.txt", "The report.\n");
    openssl_.makeAuthority();
}

Outcome Place::run(Words command, RunOptions options) const {
    options.environment.emplace("KLUNORTREDI_HOME", home_.path());
    options.folder = folder_.path();
    return test_support::run(command, options);
}

Outcome Place::admin(const Words& words, RunOptions options) const {
    Words command{KLUNORTREDI_CSP, "container"};
    command.insert(command.end(), words.begin(), words.end());
    return run(std::move(command), std::move(options));
}

Outcome Place::import(Words words, RunOptions options) const {
    words.insert(words.begin(), "import");
    words.insert(words.end(), {"--pin-file", "pin.txt", "--password-file", "password.txt"});
    return admin(words, std::move(options));
}

void Place::mustImport(const Words& words) const {
    must(import(words), "import");
}

Json Place::json(Words words) const {
    words.emplace_back("--json");
    const Outcome result = admin(words);
    try {
        return Json::parse(result.out);
    } catch (const Json::exception&) {
        throw std::runtime_error("no JSON document: '" + result.out + "', standard error: " + result.err);
    }
}

Outcome Place::tool(const Words& command) const {
    return run(command, {});
}

void Place::mustTool(const Words& command) const {
    must(tool(command), command.front());
}

void Place::makeKey(const std::string& name, const Words& algorithm) const {
    Words command{"req",         "-new",  "-outform",           "DER",    "-nodes", "-keyout", name + ".key", "-out",
                  name + ".csr", "-subj", "/CN=Signer " + name, "-newkey"};
    command.insert(command.end(), algorithm.begin(), algorithm.end());
    openssl_.must(command);
    openssl_.issue(name + ".csr", name + ".pem");
}

void Place::makePfx(const std::string& name, const Words& words) const {
    Words command{"pkcs12",      "-export", "-inkey",      name + ".key", "-in",
                  name + ".pem", "-out",    name + ".p12", "-passout",    "file:password.txt"};
    command.insert(command.end(), words.begin(), words.end());
    openssl_.must(command);
}

std::string Place::signingProblem(const std::string& certificate, const std::string& pin) const {
    const Outcome signing =
        run({KLUNORTREDI, "sign", "report.txt", "--cert", certificate, "--pin-file", pin, "--force"}, {});
    if (signing.exit != 0) {
        return signing.err;
    }
    const Outcome verdict = openssl_.run({"cms", "-verify", "-inform", "DER", "-binary", "-in", "report.txt.sig",
                                          "-content", "report.txt", "-noverify", "-out", "/dev/null"});
    return verdict.exit == 0 ? "" : verdict.err;
}

std::string Place::file(const std::string& container, const std::string& name) const {
    return home_ / ("containers/" + container + "/" + name);
}

bool installed(const std::string& program) {
    return test_support::run({"sh", "-c", "command -v " + program}).exit == 0;
}

} // namespace admin_test
