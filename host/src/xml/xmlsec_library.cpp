#include "xmlsec_library.hpp"

#include "gost_transforms.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <xmlsec/crypto.h>
#include <xmlsec/errors.h>
#include <xmlsec/xmlsec.h>

#include <stdexcept>
#include <utility>

namespace orvik::plugin::xml::internal {

namespace {

/// The first report is the cause; those that follow come from the callers on the way out.
std::string& firstReport() {
    thread_local std::string report;
    return report;
}

void report(const char* /*file*/, int /*line*/, const char* function, const char* object, const char* subject,
            int /*reason*/, const char* message) {
    try {
        std::string text;
        for (const char* part : {object, subject, message}) {
            const std::string words = boost::algorithm::trim_copy(std::string(part == nullptr ? "" : part));
            text += (text.empty() || words.empty() ? "" : ": ") + words;
        }
        if (firstReport().empty()) {
            firstReport() = text;
        }
        log::debug("xml: " + std::string(function == nullptr ? "" : function) + ": " + text);
    } catch (...) { // NOLINT(bugprone-empty-catch): the caller is C
    }
}

bool initialize() {
    if (xmlSecInit() < 0 || xmlSecCheckVersion() != 1 || xmlSecCryptoInit() < 0) {
        return false;
    }
    xmlSecErrorsSetCallback(report); // after the initialisation, which installs one that writes to standard error
    return registerGostTransforms();
}

} // namespace

void requireXmlsec() {
    static const bool ready = initialize();
    if (!ready) {
        throw std::runtime_error("the XML signature library cannot be set up");
    }
}

std::string takeXmlsecReport() {
    return std::exchange(firstReport(), {});
}

} // namespace orvik::plugin::xml::internal
