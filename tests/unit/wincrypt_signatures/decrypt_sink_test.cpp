// The decryption handler with a sink: plaintext flows while the message arrives.

#include "decrypt_handler_fixture.hpp"

namespace wincrypt_signatures {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DecryptSinkTest : public DecryptHandlerTest {
protected:
    DecryptDataHandler::SinkParams sinkParams(const boost::shared_ptr<Certificate>& recipient = linked()) {
        DecryptDataHandler::SinkParams made;
        made.certificate = recipient;
        made.sink = [this](const unsigned char* data, std::size_t size) {
            taken_.append(reinterpret_cast<const char*>(data), size);
            return true;
        };
        return made;
    }
    /// The service knows the recipients at the final update only.
    static void hideRecipientsUntilTheEnd() {
        service().on.CryptMsgGetParam = [](void* message, DWORD type, DWORD index, void* buffer, DWORD* size) -> BOOL {
            return finished() ? Defaults::CryptMsgGetParam(message, type, index, buffer, size)
                              : static_cast<BOOL>(service_double::fail(capi::CRYPT_E_STREAM_MSG_NOT_READY));
        };
    }
    static bool finished() {
        const auto all = updates();
        return !all.empty() && all.back() == "1, 1)";
    }

    std::string taken_;
};

TEST_F(DecryptSinkTest, PlaintextFlowsAsSoonAsTheRecipientsAreKnown) {
    DecryptDataHandler handler;
    EXPECT_TRUE(handler.initialize(sinkParams()));
    EXPECT_TRUE(update(handler, "mess"));
    EXPECT_EQ(taken_, "the plaintext");
    EXPECT_TRUE(update(handler, "age"));
    EXPECT_EQ(finalize(handler), "") << "all went to the sink";
    EXPECT_EQ(taken_, "the plaintext");
    EXPECT_EQ(service().count("CryptMsgControl"), 1U);
}

TEST_F(DecryptSinkTest, ServiceThatKnowsTheRecipientsAtTheEndGivesThePlaintextThen) {
    hideRecipientsUntilTheEnd();
    DecryptDataHandler handler;
    handler.initialize(sinkParams());
    update(handler, "message");
    EXPECT_EQ(taken_, "");
    EXPECT_EQ(finalize(handler), "");
    EXPECT_EQ(taken_, "the plaintext");
}

TEST_F(DecryptSinkTest, EmptySinkIsAsNoSink) {
    auto request = sinkParams();
    request.sink = nullptr;
    DecryptDataHandler handler;
    handler.initialize(request);
    update(handler, "message");
    EXPECT_EQ(service().count("CryptMsgControl"), 0U);
    EXPECT_EQ(finalize(handler), "the plaintext");
}

TEST_F(DecryptSinkTest, RefusedPinEndsTheOperationBeforeTheContent) {
    answerPinWith(boost::none);
    DecryptDataHandler handler;
    handler.initialize(sinkParams());
    EXPECT_EQ(thrownBy<CryptoException>([&] { update(handler, "mess"); }), finalization(30001));
    EXPECT_FALSE(update(handler, "age")) << "unconfigured";
    EXPECT_EQ(taken_, "");
}

TEST_F(DecryptSinkTest, SinkThatRefusesFailsTheDecryption) {
    service().on.CryptMsgControl = [](void* message, DWORD flags, DWORD type, const void* parameter) -> BOOL {
        return Defaults::CryptMsgControl(message, flags, type, parameter) != 0
                   ? 1
                   : static_cast<BOOL>(service_double::fail(capi::CRYPT_E_MSG_ERROR));
    };
    auto request = sinkParams();
    request.sink = [](const unsigned char*, std::size_t) { return false; };
    DecryptDataHandler handler;
    handler.initialize(request);
    EXPECT_EQ(thrownBy<CryptoException>([&] { update(handler, "mess"); }), finalization(30058));
    EXPECT_EQ(warnings().size(), 1U);
    std::vector<unsigned char> out;
    EXPECT_FALSE(handler.finalize(out));
}

TEST_F(DecryptSinkTest, ContentThatComesBeforeTheKeyDoesNotReachTheSink) {
    static CMSG_STREAM_INFO opened;
    service().on.CryptMsgOpenToDecode = [](DWORD encoding, DWORD flags, DWORD type, unsigned long context,
                                           CERT_INFO* info, CMSG_STREAM_INFO* stream) {
        opened = *stream;
        return Defaults::CryptMsgOpenToDecode(encoding, flags, type, context, info, stream);
    };
    // A message of plain data: its content streams out while it is read, and it has no recipients.
    service().on.CryptMsgUpdate = [](void* message, const BYTE* data, DWORD size, BOOL final) -> BOOL {
        std::string content = "not encrypted";
        return opened.pfnStreamOutput(opened.pvArg, reinterpret_cast<BYTE*>(content.data()),
                                      static_cast<DWORD>(content.size()), 0) == 0
                   ? static_cast<BOOL>(service_double::fail(capi::CRYPT_E_MSG_ERROR))
                   : Defaults::CryptMsgUpdate(message, data, size, final);
    };
    service().failFunction("CryptMsgGetParam", capi::CRYPT_E_INVALID_MSG_TYPE);
    DecryptDataHandler handler;
    handler.initialize(sinkParams());
    EXPECT_EQ(thrownBy<SystemException>([&] { update(handler, "mess"); }), updating(code(capi::CRYPT_E_MSG_ERROR)));
    EXPECT_EQ(taken_, "");
}

TEST_F(DecryptSinkTest, WhatTheSinkThrowsReachesTheCaller) {
    auto request = sinkParams();
    request.sink = [](const unsigned char*, std::size_t) -> bool { throw std::length_error("disk full"); };
    DecryptDataHandler handler;
    handler.initialize(request);
    EXPECT_THROW(update(handler, "mess"), std::length_error);
    EXPECT_THAT(warnings(), IsEmpty());
}

/// A recipient as the CryptoAPI reports one that is named by a key identifier.
std::string namedByKey(const std::string& name) {
    CERT_INFO info{};
    info.Issuer = {static_cast<DWORD>(name.size()), reinterpret_cast<BYTE*>(const_cast<char*>(name.data()))};
    return {reinterpret_cast<const char*>(&info), sizeof info};
}

TEST_F(DecryptSinkTest, RecipientNamedByKeyIdentifierIsFoundWithASinkOnly) {
    const std::string keyId = "\xE8\xF9\x6D\x2E\x4C\x38\xF3\xE5\xD7\x2A\xD7\x7E\xF4\x1A\x23\x33\x80\x9B\xB8\x3F";
    const std::string name =
        std::string("\x30\x26\x31\x24\x30\x22\x06\x0A\x2B\x06\x01\x04\x01\x82\x37\x0A\x07\x01\x04\x14", 20) + keyId;
    auto other = name;
    other.back() = 'x';
    service().message.parameters[{19, 0}] = namedByKey(other);
    service().message.parameters[{19, 1}] = namedByKey(name);
    service().message.parameters[{19, 2}] = namedByKey("");
    service().on.CertGetCertificateContextProperty = [&](PCCERT_CONTEXT context, DWORD property, void* buffer,
                                                         DWORD* size) {
        return property == 20 ? service_double::give(keyId, buffer, size)
                              : Defaults::CertGetCertificateContextProperty(context, property, buffer, size);
    };
    DecryptDataHandler handler;
    handler.initialize(sinkParams());
    update(handler, "message");
    finalize(handler);
    EXPECT_EQ(taken_, "the plaintext");
    DecryptDataHandler plain;
    open(plain);
    EXPECT_EQ(finalize(plain), "");
}

} // namespace
} // namespace wincrypt_signatures
