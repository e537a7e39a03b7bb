// The identifier text: the fold of the address and its hex form, checked
// against the test vectors published in docs/identifier.md, so that the
// page the identifiers' recipients read can never drift from the program.
#include "machine_id.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

struct Vector {
    std::string line;     // as written on the page, for messages
    std::string address;  // "00-1A-2B-3C-4D-5E"
    std::wstring text;    // "08-0x3c2b444d"
};

// The cell's text without spaces and backticks.
std::string Cell(const std::string& line, size_t index) {
    size_t start = 0;
    for (size_t i = 0; i <= index; ++i) {
        start = line.find('|', start);
        if (start == std::string::npos) return std::string();
        ++start;
    }
    const size_t end = line.find('|', start);
    std::string cell;
    for (size_t i = start; i < end && i < line.size(); ++i) {
        if (line[i] != ' ' && line[i] != '`') cell += line[i];
    }
    return cell;
}

// The rows of the table under "## Test vectors", header and rule excepted.
std::vector<Vector> ReadVectors() {
    std::ifstream page(KELVO_IDENTIFIER_DOC);
    std::vector<Vector> vectors;
    bool inSection = false;
    int tableLine = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("## ", 0) == 0) inSection = line == "## Test vectors";
        if (!inSection || line.rfind("|", 0) != 0 || ++tableLine <= 2) continue;
        const std::string text = Cell(line, 1);
        vectors.push_back({line, Cell(line, 0), std::wstring(text.begin(), text.end())});
    }
    return vectors;
}

// "00-1A-2B-3C-4D-5E" into six bytes; false unless it has exactly that form.
bool ParseAddress(const std::string& written, MachineAddress& address) {
    if (written.size() != 17) return false;
    for (size_t i = 0; i < 6; ++i) {
        const std::string pair = written.substr(i * 3, 2);
        char* end = nullptr;
        address.bytes[i] = uint8_t(strtoul(pair.c_str(), &end, 16));
        if (end != pair.c_str() + 2 || (i < 5 && written[i * 3 + 2] != '-')) return false;
    }
    return true;
}

TEST(FormatMachineId, GivesThePublishedIdentifierOfEveryTestVector) {
    const std::vector<Vector> vectors = ReadVectors();
    ASSERT_FALSE(vectors.empty()) << "no test vectors found in " << KELVO_IDENTIFIER_DOC;
    for (const Vector& v : vectors) {
        MachineAddress address = {};
        ASSERT_TRUE(ParseAddress(v.address, address)) << "unreadable address in: " << v.line;
        const std::wstring actual = FormatMachineId(address).chars;
        EXPECT_EQ(v.text, actual) << "address " << v.address;
    }
}

TEST(FormatMachineId, FailureTextIsABareZero) {
    EXPECT_EQ(std::wstring(L"0"), std::wstring(kNoMachineIdText));
}

}  // namespace
