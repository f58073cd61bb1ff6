#pragma once

#include <vyn/helper.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vyn::testing {

using Cells = std::vector<std::string>;

// A page of the manual, of which tests check what it shows.
class Page {
  public:
    explicit Page(const std::string& path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) mLines.push_back(line);
    }

    // The rows of all tables whose first column has this heading, without blanks around the cells.
    std::vector<Cells> rows(const std::string& heading) const {
        std::vector<Cells> found;
        bool inTable = false;
        for (const std::string& line : mLines) {
            const bool isRow = helper::startsWith(line, "|");
            const bool isRule = helper::startsWith(line, "|-");
            if (isRow && inTable && !isRule) found.push_back(cellsOf(line));
            inTable = isRow && (inTable || cellsOf(line)[0] == heading);
        }
        return found;
    }

    // The texts of all fenced blocks of this kind.
    std::vector<std::string> blocks(const std::string& kind) const {
        std::vector<std::string> found;
        bool inBlock = false;
        for (const std::string& line : mLines) {
            if (line == "```") {
                inBlock = false;
            } else if (line == "```" + kind) {
                inBlock = true;
                found.emplace_back();
            } else if (inBlock) {
                found.back() += line + "\n";
            }
        }
        return found;
    }

  private:
    static Cells cellsOf(const std::string& row) {
        Cells cells = helper::split(row, '|');
        cells.erase(cells.begin());
        cells.pop_back();
        for (std::string& cell : cells) cell = helper::trim(cell, " ");
        return cells;
    }

    std::vector<std::string> mLines;
};

// What stands between backticks in a cell.
inline std::vector<std::string> codeIn(const std::string& cell) {
    const std::vector<std::string> pieces = helper::split(cell, '`');
    std::vector<std::string> code;
    for (size_t i = 1; i < pieces.size(); i += 2) code.push_back(pieces[i]);
    return code;
}

}  // namespace vyn::testing
