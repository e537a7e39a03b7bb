// The bounded copy, append and format that the program carries for Windows
// XP, whose msvcrt.dll lacks them: documented results, and an emptied
// destination on every failure.
#include <gtest/gtest.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace {

struct BoundedCase {
    const char* call;
    int (*run)(char* dest);  // dest: "ab", then '#' up to and past the 8 bytes given
    int result;
    const char* dest;  // as a string; "ab" means untouched
};

TEST(SecureCrt, BoundedCallsEmptyTheDestinationOnFailure) {
    const BoundedCase cases[] = {
        {"strcpy_s fits", [](char* d) { return strcpy_s(d, 8, "1234567"); }, 0, "1234567"},
        {"strcpy_s one too long", [](char* d) { return strcpy_s(d, 8, "12345678"); }, ERANGE, ""},
        {"strcpy_s size 0", [](char* d) { return strcpy_s(d, 0, "x"); }, EINVAL, "ab"},
        {"strcat_s fits", [](char* d) { return strcat_s(d, 8, "cdefg"); }, 0, "abcdefg"},
        {"strcat_s one too long", [](char* d) { return strcat_s(d, 8, "cdefgh"); }, ERANGE, ""},
        {"strcat_s unterminated", [](char* d) { return strcat_s(d, 2, "x"); }, EINVAL, ""},
        {"sprintf_s fits", [](char* d) { return sprintf_s(d, 5, "%04X", 0x7FFF); }, 4, "7FFF"},
        {"sprintf_s one too long", [](char* d) { return sprintf_s(d, 5, "%x", 0x12345); }, -1, ""},
    };
    for (const BoundedCase& c : cases) {
        char dest[10] = "ab\0######";
        EXPECT_EQ(c.result, c.run(dest)) << c.call;
        EXPECT_STREQ(c.dest, dest) << c.call;
        EXPECT_EQ('#', dest[8]) << c.call << " wrote past the size it was given";
    }
}

}  // namespace
