#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
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

// Such as "TavUtils::Config::GetInstance()".
std::set<std::string> Exported(const std::string& file) {
    return Lines(CommandOutput("nm -DC --defined-only --format=just-symbols '" + file + "'"));
}

std::string ContractText() {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(ORLIM_CONTRACT_FOLDER)) {
        text += FileText(entry.path());
    }
    return text;
}

// The function's own name: "ReadTcp" of "TavUtils::NetStat::ReadTcp(std::vector<...>&, bool const*)".
std::string FunctionName(const std::string& symbol) {
    static const std::regex pattern(R"((?:.*& )?(?:\w+::)*(~?\w+|operator(?:=|\[\]))(?:<.*>)?(?:\[abi:cxx11\])?\(.*)");
    std::smatch match;
    return std::regex_match(symbol, match, pattern) ? match[1].str() : "";
}

TEST(Exports, LibraryExportsWhatTheContractDeclaresAndNothingElse) {
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
    const std::string symbols = CommandOutput("nm -DC --defined-only '" ORLIM_LIBRARY_FILE "'");
    // A declaration at the beginning of a line: functions outside classes.
    static const std::regex declaration(R"((?:^|\n)[\w:<>*& ]*?\b(\w+)\([^;{]*\);)");
    const std::string contract = ContractText();
    size_t count = 0;
    for (std::sregex_iterator match(contract.begin(), contract.end(), declaration), end; match != end; ++match) {
        const std::string name = (*match)[1];
        if (name == "static_assert") {
            continue;
        }
        EXPECT_NE(symbols.find(name), std::string::npos) << name;
        ++count;
    }
    EXPECT_GT(count, 20U);
}

// A second copy of the log, the queue or the settings would be one that the module does not see.
TEST(Exports, AgentHoldsNoCopyOfWhatTheLibraryExports) {
    const std::set<std::string> own =
        Lines(CommandOutput("nm -C --defined-only --format=just-symbols '" ORLIM_AGENT_FILE "'"));
    EXPECT_GT(own.size(), 100U);
    for (const std::string& symbol : Exported(ORLIM_LIBRARY_FILE)) {
        // Inline members of records are in every program that uses them.
        if (symbol.find("::~") == std::string::npos) {
            EXPECT_FALSE(own.contains(symbol)) << symbol;
        }
    }
}

}  // namespace
