// docs/troubleshooting.md lists the lines that the library writes, as they stand in src/.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/page.h"

namespace vyn {
namespace {

// A statement that writes a line: the parts of the line that are always the same, in their order.
struct Statement {
    std::string code;
    std::string level;  // empty when the statement is given one
    bool tellsErrno;
    std::vector<std::string> parts;
};

// A row of the page: a line with words in capitals where it differs, and its level.
struct Row {
    std::string line;
    std::string level;
};

// `at` is the opening quote.
size_t endOfLiteral(const std::string& code, size_t at) {
    for (++at; at < code.size() && code[at] != '"'; ++at) at += code[at] == '\\';
    return std::min(at + 1, code.size());
}

size_t endOfStatement(const std::string& code, size_t at) {
    while (at < code.size() && code[at] != ';') {
        at = code[at] == '"' ? endOfLiteral(code, at) : at + 1;
    }
    return at;
}

// What a literal shows: nothing of colours and of backslashes.
std::string textOf(const std::string& literal) {
    std::string text;
    for (size_t i = 0; i < literal.size(); ++i) {
        if (literal.compare(i, 5, "\\033[") == 0) {
            i = literal.find('m', i);
        } else if (literal[i] != '\\') {
            text += literal[i];
        }
    }
    return helper::trim(text, " ");
}

void addLiterals(const std::string& code, std::vector<std::string>& parts) {
    for (size_t at = code.find('"'); at != std::string::npos;) {
        const size_t end = endOfLiteral(code, at);
        const std::string text = textOf(code.substr(at + 1, end - at - 2));
        if (!text.empty()) parts.push_back(text);
        at = code.find('"', end);
    }
}

// The first argument of the macro, which is all of it that is printed; `code` begins behind its
// name and loses its arguments.
std::string takeCondition(std::string& code) {
    size_t end = 1;
    for (int depth = 1; depth > 0; ++end) depth += (code[end] == '(') - (code[end] == ')');
    const std::string arguments = code.substr(1, end - 2);
    code.erase(0, end);
    return helper::trim(arguments.substr(0, arguments.find(',')), "\"");
}

std::string levelOf(const std::string& macro, const std::string& code) {
    if (helper::startsWith(macro, "VYN_CHECK")) return "fatal";
    for (std::string name : {"Fatal", "Error", "Warning", "Info", "Debug", "Verbose"}) {
        const bool isIt = code.find("kLevel" + name) != std::string::npos;
        std::transform(name.begin(), name.end(), name.begin(), ::toupper);
        const bool isMacro = macro.find(name) != std::string::npos;
        std::transform(name.begin(), name.end(), name.begin(), ::tolower);
        if (isIt || isMacro) return name;
    }
    return "";
}

bool tellsErrno(const std::string& code) {
    return code.find("ERRNO") != std::string::npos || code.find("Errno") != std::string::npos;
}

Statement statementOf(const std::string& macro, std::string code) {
    Statement statement{macro + code, levelOf(macro, code), tellsErrno(macro + code), {}};
    if (helper::startsWith(macro, "VYN_CHECK")) {
        statement.parts.push_back("Check failed. (" + takeCondition(code) + ")");
    }
    addLiterals(code, statement.parts);
    return statement;
}

bool isInWord(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

// Those without a part of their own, which pass on what they are given, are left out.
void addStatements(const std::filesystem::path& file, std::vector<Statement>& statements) {
    std::ifstream stream(file);
    const std::string code(std::istreambuf_iterator<char>(stream), {});
    for (const std::string start : {"VYN_LOG_", "VYN_CHECK", "LogMessage("}) {
        for (size_t at = 0; (at = code.find(start, at)) != std::string::npos;) {
            size_t arguments = at;
            while (isInWord(code[arguments])) ++arguments;
            const size_t end = endOfStatement(code, arguments);
            const Statement statement = statementOf(code.substr(at, arguments - at),
                                                    code.substr(arguments, end - arguments));
            at = end;
            if (!statement.parts.empty()) statements.push_back(statement);
        }
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
        if (std::none_of(rows.begin(), rows.end(), isIt)) missing += statement.code + "\n";
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
