// The identifier text: the fold of the address and its hex form, checked
// against the test vectors and the identifiers of shared addresses published
// in docs/identifier.md, so that the page the identifiers' recipients read
// can never drift from the program.
#include "machine_id.h"

#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <fstream>
#include <string>

namespace {

// Every row of the page's two address tables (headers and rules excepted)
// against FormatMachineId; a table without rows, or a row that cannot be
// read, fails.
TEST(FormatMachineId, GivesThePublishedIdentifierOfEveryTableRow) {
    for (const std::string table : {"## Test vectors", "## Identifiers that do not identify a machine"}) {
        std::ifstream page(KELVO_IDENTIFIER_DOC);
        bool inSection = false;
        int rows = 0;
        for (std::string line; std::getline(page, line);) {
            if (line.rfind("## ", 0) == 0) inSection = line == table;
            if (!inSection || line.rfind("| `", 0) != 0) continue;
            unsigned a[6];
            char text[16] = {};
            const int read = sscanf(line.c_str(), "| `%2x-%2x-%2x-%2x-%2x-%2x` | `%15[^`]`", &a[0],
                                    &a[1], &a[2], &a[3], &a[4], &a[5], text);
            ASSERT_EQ(7, read) << "unreadable row: " << line;
            const MachineAddress address = {{uint8_t(a[0]), uint8_t(a[1]), uint8_t(a[2]),
                                             uint8_t(a[3]), uint8_t(a[4]), uint8_t(a[5])}};
            EXPECT_EQ(std::wstring(text, text + strlen(text)),
                      std::wstring(FormatMachineId(address).chars))
                << "row: " << line;
            ++rows;
        }
        EXPECT_NE(0, rows) << "no rows under \"" << table << "\" in " << KELVO_IDENTIFIER_DOC;
    }
}

}  // namespace
