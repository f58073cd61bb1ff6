// docs/troubleshooting.md lists the lines that the library writes, as they stand in src/.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "support/page.h"

namespace vyn {
namespace {

// A statement that writes a line: the parts of the line that are always the same, in their order.
struct Statement {
    std::string place;
    std::string level;  // empty when the statement is given one
    bool tellsErrno;
    std::vector<std::string> parts;
};

// A row of the page: a line with words in capitals where it differs, and its level.
struct Row {
    std::string line;
    std::string level;
};

std::string withoutEscapes(const std::string& literal) {
    static const std::regex colour(R"(\\033\[[0-9;]*m)");
    static const std::regex quote(R"(\\")");
    return std::regex_replace(std::regex_replace(literal, colour, ""), quote, "\"");
}

void addLiterals(const std::string& code, std::vector<std::string>& parts) {
    static const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
    for (std::sregex_iterator it(code.begin(), code.end(), literal), end; it != end; ++it) {
        const std::string part = helper::trim(withoutEscapes((*it)[1]), " ");
        if (!part.empty()) parts.push_back(part);
    }
}

std::string levelOf(const std::string& macro, const std::string& code) {
    static const std::regex ofMacro("FATAL|ERROR|WARNING|INFO|DEBUG|VERBOSE");
    static const std::regex ofMessage("kLevel(\\w+)");
    std::smatch match;
    if (helper::startsWith(macro, "VYN_CHECK")) return "fatal";
    if (!std::regex_search(macro, match, ofMacro)) std::regex_search(code, match, ofMessage);
    std::string level = match.empty() ? "" : match.str(match.size() - 1);
    std::transform(level.begin(), level.end(), level.begin(), ::tolower);
    return level;
}

bool tellsErrno(const std::string& code) {
    return code.find("ERRNO") != std::string::npos || code.find("Errno") != std::string::npos;
}

Statement statementOf(const std::string& macro, std::string code) {
    static const std::regex condition(R"re(^\("?(.*?)"?(?:, -?\w+)?\)( <<|\s*$))re");
    Statement statement{"", levelOf(macro, code), tellsErrno(macro + code), {}};
    std::smatch match;
    if (helper::startsWith(macro, "VYN_CHECK") && std::regex_search(code, match, condition)) {
        statement.parts.push_back("Check failed. (" + match.str(1) + ")");
        code = match.suffix().str();
    }
    addLiterals(code, statement.parts);
    return statement;
}

// Those without a part of their own, which pass on what they are given, are left out.
void addStatements(const std::filesystem::path& file, std::vector<Statement>& statements) {
    static const std::regex logging(
        R"re(\b(VYN_LOG_\w+|VYN_CHECK\w*|LogMessage(?=\())((?:[^";]|"(?:[^"\\]|\\.)*")*);)re");
    std::ifstream stream(file);
    const std::string code(std::istreambuf_iterator<char>(stream), {});
    for (std::sregex_iterator it(code.begin(), code.end(), logging), end; it != end; ++it) {
        Statement statement = statementOf((*it)[1], (*it)[2]);
        statement.place = file.filename().string() + ": " + it->str();
        if (!statement.parts.empty()) statements.push_back(statement);
    }
}

std::vector<Statement> statementsOfLibrary() {
    std::vector<Statement> statements;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(VYN_SRC)) {
        if (entry.path().extension() == ".cpp") addStatements(entry.path(), statements);
    }
    return statements;
}

std::vector<Row> rowsOfPage() {
    std::vector<Row> rows;
    for (const testing::Cells& cells : testing::Page(VYN_DOCS "/troubleshooting.md").rows("Line")) {
        const std::vector<std::string> code = testing::codeIn(cells[0]);
        EXPECT_EQ(code.size(), 1u) << cells[0];
        rows.push_back({code.empty() ? "" : code[0], cells[1]});
    }
    return rows;
}

// The row has all parts, and nothing but words in capitals between them.
bool shows(const Row& row, const Statement& statement) {
    if (tellsErrno(row.line) != statement.tellsErrno) return false;
    if (!statement.level.empty() && statement.level != row.level) return false;
    std::string between;
    size_t from = 0;
    for (const std::string& part : statement.parts) {
        const size_t at = row.line.find(part, from);
        if (at == std::string::npos) return false;
        between += row.line.substr(from, at - from);
        from = at + part.size();
    }
    between += row.line.substr(from);
    return std::none_of(between.begin(), between.end(), ::islower);
}

TEST(TroubleshootingPage, HasEveryLineThatTheLibraryWrites) {
    const std::vector<Row> rows = rowsOfPage();
    const std::vector<Statement> statements = statementsOfLibrary();
    ASSERT_GT(statements.size(), 80u);
    std::string missing;
    for (const Statement& statement : statements) {
        const auto isIt = [&](const Row& row) { return shows(row, statement); };
        if (std::none_of(rows.begin(), rows.end(), isIt)) missing += statement.place + "\n";
    }
    EXPECT_EQ(missing, "");
}

TEST(TroubleshootingPage, HasNoLineThatTheLibraryDoesNotWrite) {
    const std::vector<Statement> statements = statementsOfLibrary();
    std::string stale;
    for (const Row& row : rowsOfPage()) {
        const auto isIt = [&](const Statement& statement) { return shows(row, statement); };
        if (std::none_of(statements.begin(), statements.end(), isIt)) stale += row.line + "\n";
    }
    EXPECT_EQ(stale, "");
}

}  // namespace
}  // namespace vyn
