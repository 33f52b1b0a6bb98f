#pragma once

#include "cli/message_parts.hpp"
#include "cli/signers_place.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cli_test {

inline const std::vector<std::string> p256{"-pkeyopt", "ec_paramgen_curve:P-256"};

/// Messages of an author that others counter-sign.
class CounterSigned : public testing::Test {
protected:
    CounterSigned() {
        place_.makeIdentity("author", "ec", p256);
        place_.makeIdentity("witness", "ec", p256);
        place_.sign("plain.p7s", {"author"});
    }

    [[nodiscard]] Parts plain() const { return Parts(place_.folder().read("plain.p7s")); }

    /// The signature value of a SignerInfo without unsigned attributes.
    static std::string valueOf(const std::string& signer) {
        return Parts::content(Parts::children(Parts::content(signer)).back());
    }

    /// A SignerInfo over these octets, without signed attributes.
    std::string counter(const std::string& by, const std::string& over, const std::string& digest = "sha256") {
        place_.folder().write("value", over);
        place_.openssl().must({"cms", "-sign", "-binary", "-noattr", "-in", "value", "-md", digest, "-signer",
                               by + ".pem", "-inkey", by + ".key", "-outform", "DER", "-out", "counter.der"});
        return Parts(place_.folder().read("counter.der")).signer;
    }

    /// The same with signed attributes: message-digest and the signing time 2026-11-20T12:00:00Z.
    std::string timedCounter(const std::string& by, const std::string& over) {
        const std::vector<std::string> members = Parts::children(Parts::content(counter(by, over)));
        place_.openssl().must({"dgst", "-sha256", "-binary", "-out", "digest", "value"});
        const std::string digestType("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04", 11);
        const std::string timeType("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05", 11);
        const std::string digest = place_.folder().read("digest");
        const std::string attributes = element(0x30, timeType + element(0x31, element(0x17, "261120120000Z"))) +
                                       element(0x30, digestType + element(0x31, element(0x04, digest)));
        place_.folder().write("attributes", element(0x31, attributes));
        place_.openssl().must({"dgst", "-sha256", "-sign", by + ".key", "-out", "signed", "attributes"});
        return element(0x30, members[0] + members[1] + members[2] + element(0xA0, attributes) + members[3] +
                                 element(0x04, place_.folder().read("signed")));
    }

    /// The SignerInfo with these counter-signatures.
    static std::string countered(const std::string& signer, const std::string& counters) {
        const std::string type("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x06", 11);
        return element(0x30, Parts::content(signer) + element(0xA1, element(0x30, type + element(0x31, counters))));
    }

    /// Writes m.p7s: the message with these SignerInfos and, besides its own, the certificates of these names.
    void write(const std::string& signers, const std::vector<std::string>& certificates = {"witness"}) {
        std::string all = plain().certificates;
        for (const std::string& name : certificates) {
            place_.openssl().must({"x509", "-in", name + ".pem", "-outform", "DER", "-out", name + ".cer"});
            all += place_.folder().read(name + ".cer");
        }
        place_.folder().write("m.p7s", plain().message(all, signers));
    }

    /// The counter-signatures of the only signer, which is valid whatever they are.
    Json shown() {
        const Json document = place_.json({"verify", "m.p7s"});
        EXPECT_EQ(document["valid"], true) << document;
        EXPECT_EQ(document["signers"].size(), 1U);
        return document["signers"][0]["counter_signatures"];
    }
    std::string words(int exit = 0) {
        const Outcome outcome = place_.cli({"verify", "m.p7s"});
        EXPECT_EQ(outcome.exit, exit) << outcome.out << outcome.err;
        return outcome.out;
    }
    Json notChecked() { return place_.json({"verify", "m.p7s"})["not_checked"]; }

    SignersPlace place_;
};

} // namespace cli_test
