#pragma once

#include "cli/workplace.hpp"
#include "interop/table.hpp"

#include <string>
#include <vector>

namespace interop {

/// Signed XML documents between the command, xmlsec1 and Java's XML-DSig, with the signing time as a signed property
/// (XAdES) or without properties. Requires the keys and certificates that CmsMatrix makes. Every document is tried
/// twice: as it is, and changed.
class XmlMatrix {
public:
    explicit XmlMatrix(const cli_test::Workplace& place);

    /// Makes the documents of everybody but Java; xmlsec1 judges ours.
    void make();
    /// Words for Matrix.java: Java makes its documents and judges ours.
    [[nodiscard]] std::vector<std::string> javaWords() const;
    /// Takes its answers, a line for each document that it judged.
    void take(const std::vector<std::string>& lines);
    /// The command judges the documents of the others.
    void judgeTheirs();

    [[nodiscard]] Table& table() { return table_; }

private:
    void signByXmlsec(bool properties) const;
    void damage(const std::string& file, bool properties) const;
    [[nodiscard]] bool xmlsecAccepts(const std::string& file, const std::string& certificate) const;
    void judgeOurs(const std::string& judge, const std::string& kind, bool properties, bool accepts, bool refuses);

    const cli_test::Workplace& place_;
    Table table_;
};

} // namespace interop
