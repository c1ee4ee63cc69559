#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "command_output.h"
#include "tests/support/temporary_directory.h"

namespace {

std::set<std::string> Lines(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);) {
        lines.insert(line);
    }
    return lines;
}

// Demangled, such as "TavUtils::Config::GetInstance()".
std::set<std::string> Exported(const std::string& file) {
    return Lines(CommandOutput("nm -DC --defined-only --format=just-symbols '" + file + "'"));
}

// Removes everything between open and close.
std::string Without(std::string text, const std::string& open, const std::string& close) {
    for (size_t begin = text.find(open); begin != std::string::npos; begin = text.find(open, begin)) {
        const size_t end = text.find(close, begin + open.size());
        text.erase(begin, end == std::string::npos ? end : end + close.size() - begin);
    }
    return text;
}

// The code of the headers, without comments, directives and attributes.
std::string ContractText() {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(ORLIM_CONTRACT_FOLDER)) {
        text += FileText(entry.path());
    }
    return Without(Without(Without(text, "//", "\n"), "#", "\n"), "[[", "]]");
}

bool IsNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '~';
}

// The function's unqualified name: "ReadTcp" of "TavUtils::NetStat::ReadTcp(std::vector<...>&, bool const*)".
std::string FunctionName(std::string symbol) {
    symbol = Without(symbol, "[abi:cxx11]", "");
    symbol.erase(std::min(symbol.find('('), symbol.size()));
    if (symbol.ends_with('>')) {
        symbol.erase(symbol.find("::GetConfigMap<") + std::string("::GetConfigMap").size());
    }
    return symbol.substr(symbol.find_last_of(": ") + 1);
}

// The name of the function that a statement declares; empty if it declares none.
std::string DeclaredFunction(const std::string& statement) {
    const size_t open = statement.find('(');
    const bool ends = statement.ends_with(')') || statement.ends_with(") const");
    if (open == std::string::npos || !ends || statement.find('=') < open) {
        return "";
    }
    size_t begin = open;
    while (begin > 0 && IsNameCharacter(statement[begin - 1])) {
        --begin;
    }
    const bool isCall = begin > 0 && statement[begin - 1] == '.';
    const std::string name = statement.substr(begin, open - begin);
    return isCall || name == "static_assert" ? "" : name;
}

// Splits code at semicolons and braces.
std::vector<std::string> Statements(const std::string& code) {
    std::vector<std::string> statements(1);
    for (const char c : code) {
        if (c == ';' || c == '{' || c == '}') {
            statements.emplace_back();
        } else {
            statements.back() += c;
        }
    }
    return statements;
}

TEST(Exports, LibraryExportsOnlyTheContractsDeclarations) {
    const std::string contract = ContractText();
    const std::set<std::string> symbols = Exported(ORLIM_LIBRARY_FILE);
    EXPECT_GT(symbols.size(), 50U);
    for (const std::string& symbol : symbols) {
        const std::string name = FunctionName(symbol);
        EXPECT_FALSE(name.empty()) << symbol;
        EXPECT_NE(contract.find(name + "("), std::string::npos) << symbol;
        EXPECT_FALSE(symbol.starts_with("Host::")) << symbol;
    }
}

TEST(Exports, EveryFunctionOfTheContractIsExported) {
    std::set<std::string> exported;
    for (const std::string& symbol : Exported(ORLIM_LIBRARY_FILE)) {
        exported.insert(FunctionName(symbol));
    }
    size_t count = 0;
    for (const std::string& statement : Statements(ContractText())) {
        const std::string name = DeclaredFunction(statement);
        if (!name.empty()) {
            EXPECT_TRUE(exported.contains(name)) << statement;
            ++count;
        }
    }
    EXPECT_GT(count, 20U);
}

// The module would not see a second copy of the log, the queue or the settings.
TEST(Exports, AgentHasNoCopyOfTheLibrarysExports) {
    const std::set<std::string> own =
        Lines(CommandOutput("nm -C --defined-only --format=just-symbols '" ORLIM_AGENT_FILE "'"));
    EXPECT_GT(own.size(), 100U);
    for (const std::string& symbol : Exported(ORLIM_LIBRARY_FILE)) {
        // Every program that uses the records contains their inline members.
        if (symbol.find("::~") == std::string::npos) {
            EXPECT_FALSE(own.contains(symbol)) << symbol;
        }
    }
}

}  // namespace
