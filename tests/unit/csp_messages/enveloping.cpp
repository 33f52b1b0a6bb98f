#include "enveloping.hpp"

#include "openssl_tool.hpp"

#include "exports/export.hpp"

#include <stdexcept>

namespace klunortredi::test {

namespace exports = csp::exports;

Recipient makeRecipient(const TempFolder& folder, const std::string& name, const std::string& algorithm) {
    if (run(folder, "openssl req -x509 -newkey " + algorithm + " -nodes -keyout " + name + ".key -out " + name +
                        ".pem -subj '/CN=" + name + "' -days 30 && openssl x509 -in " + name +
                        ".pem -outform DER -out " + name + ".der") != 0) {
        throw std::runtime_error(output(folder));
    }
    Recipient made{name, readFile(folder.path() / (name + ".der")), nullptr};
    made.info = std::make_shared<csp::CertInfo>(made.certificate);
    return made;
}

Enveloped tryEnvelop(const std::vector<Recipient>& recipients, ByteView content, const EnvelopOptions& options) {
    std::vector<CERT_INFO*> infos;
    for (const Recipient& recipient : recipients) {
        infos.push_back(const_cast<CERT_INFO*>(&recipient.info->get()));
    }
    CMSG_ENVELOPED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    std::string cipher = options.cipher;
    Bytes parameters = options.parameters;
    info.ContentEncryptionAlgorithm = {cipher.data(), {static_cast<DWORD>(parameters.size()), parameters.data()}};
    info.cRecipients = static_cast<DWORD>(infos.size());
    info.rgpRecipients = infos.data();
    if (options.spoil) {
        options.spoil(info);
    }
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info(options.contentSize);
    const Msg message(exports::CryptMsgOpenToEncode(capi::X509_AND_PKCS_7, options.flags, capi::CMSG_ENVELOPED, &info,
                                                    const_cast<char*>(options.contentType),
                                                    options.streamed ? &stream : nullptr));
    if (message.handle() == nullptr) {
        return {exports::GetLastError(), {}, 0};
    }
    const DWORD error = message.feed(content, options.chunk);
    if (error != 0 || options.streamed) {
        return {error, std::move(collected.octets), collected.finalCalls};
    }
    return {0, message.param(capi::CMSG_CONTENT_PARAM), 0};
}

Bytes opensslDecrypt(const TempFolder& folder, const Recipient& recipient, ByteView message) {
    writeFile(folder.path() / "message", message);
    if (run(folder, "openssl cms -decrypt -binary -inform DER -in message -out plaintext -inkey " + recipient.name +
                        ".key -recip " + recipient.name + ".pem") != 0) {
        throw std::runtime_error(output(folder));
    }
    return readFile(folder.path() / "plaintext");
}

} // namespace klunortredi::test
