#include "cng_answers.hpp"

#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/user_agent.hpp"
#include "orvik/plugin/version_registry.hpp"

namespace wincrypt_keys {

void forgetAnswers() {
    providersAreCng = providerObjectsAreCng = handlesAreCng = false;
    algorithms = {"1.2.643.7.1.1.1.1", "1.2.643.7.1.1.6.1"};
    keyFailure = nullptr;
    systemName = "System 1";
    machineName = "machine";
}

} // namespace wincrypt_keys

namespace orvik::plugin::crypto::tools {
bool isCNG(boost::wstring_view) {
    return wincrypt_keys::providersAreCng;
}
bool isCNG(const IProvider&) {
    return wincrypt_keys::providersAreCng || wincrypt_keys::providerObjectsAreCng;
}
std::vector<std::string> algorithms(const IProvider&) {
    return wincrypt_keys::algorithms;
}
} // namespace orvik::plugin::crypto::tools

namespace orvik::plugin::wincrypt::tools {
bool isCNG(unsigned long) {
    return wincrypt_keys::handlesAreCng;
}
} // namespace orvik::plugin::wincrypt::tools

namespace orvik::plugin::wincrypt {
PrivateKey::PrivateKey(const boost::shared_ptr<crypto::ICertificate>&) {
    std::rethrow_exception(wincrypt_keys::keyFailure);
}
} // namespace orvik::plugin::wincrypt

namespace orvik::plugin {
std::string VersionRegistry::os() {
    return wincrypt_keys::systemName;
}
UserAgent::UserAgent() : machine(wincrypt_keys::machineName), user("user"), process("program") {
    ++wincrypt_keys::userAgents;
}
} // namespace orvik::plugin
