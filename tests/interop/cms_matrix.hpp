#pragma once

#include "cli/workplace.hpp"
#include "interop/table.hpp"
#include "support/servers/authority.hpp"

#include <string>
#include <vector>

namespace interop {

/// A kind of key: the type of the provider that makes it here, and openssl's options for a new one.
struct KeyKind {
    const char* name;
    const char* provider;
    std::vector<std::string> newKey;
};
const std::vector<KeyKind>& keyKinds();

/// A form of a signed message; a column of the table.
struct Shape {
    const char* column;
    const char* file; ///< Bouncy Castle's name of it
    bool attached;
    bool attributes; ///< signed ones
    bool ber;        ///< indefinite lengths; otherwise DER
};

/// Signed messages between the command, openssl, certtool and Bouncy Castle. Every message is tried twice: as it is,
/// and with one bit changed.
class CmsMatrix {
public:
    explicit CmsMatrix(cli_test::Workplace& place);

    /// Makes the messages of everybody but Bouncy Castle; openssl and certtool judge ours.
    void make();
    /// Words for Matrix.java: Bouncy Castle makes its messages and judges ours.
    [[nodiscard]] std::vector<std::string> castleWords();
    /// Takes its answers, a line for each message that it judged.
    void take(const std::vector<std::string>& lines);
    /// How many lines that are.
    [[nodiscard]] std::size_t lines() const { return 2 * asked_.size(); }
    /// The command judges the messages of the others.
    void judgeTheirs();

    [[nodiscard]] Table& table() { return table_; }

private:
    struct Message {
        std::string file;
        std::string certificate; ///< PEM file of the signer
        const Shape* shape;
    };
    struct Asked {
        std::string row;
        Message message;
    };

    void makeOurs(const KeyKind& kind);
    void makeByOpenssl(const KeyKind& kind);
    void makeByCerttool(const KeyKind& kind);
    void signByCommand(const KeyKind& kind, const Message& message);
    /// Copies a message with one bit changed: of a signed attribute, the content or the signature's value.
    void damage(const Message& message) const;
    [[nodiscard]] bool hasEncoding(const Message& message) const;
    void judgeOurs(const KeyKind& kind, const Message& message);
    void judgeTheirs(const std::string& maker, const KeyKind& kind, const std::string& subject);
    [[nodiscard]] bool opensslAccepts(const Message& message, const std::string& file) const;
    [[nodiscard]] bool certtoolAccepts(const Message& message, const std::string& file) const;
    [[nodiscard]] bool weAccept(const Message& message, const std::string& subject) const;
    [[nodiscard]] bool weRefuseDamaged(const Message& message) const;

    cli_test::Workplace& place_;
    test_servers::Authority authority_{test_servers::KeyKind::gost2012_256};
    Table table_;
    std::vector<Asked> asked_;
};

} // namespace interop
