// The identifier text: the fold of the address and its hex form.
#include "machine_id.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct TextCase {
    MachineAddress address;
    const wchar_t* text;
};

const TextCase kTextCases[] = {
    {{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}}, L"08-0x3c2b444d"},
    {{{0x00, 0x50, 0x56, 0xC0, 0x00, 0x08}}, L"08-0xc0565800"},
    {{{0x00, 0x00, 0x00, 0x00, 0x00, 0x00}}, L"08-0x0"},          // not the failure text
    {{{0xCD, 0xAB, 0x00, 0x00, 0x00, 0x00}}, L"08-0xabcd"},       // no leading zeros, lower case
    {{{0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}}, L"08-0xffffffff"},   // longest text: 13 characters
    {{{0x01, 0x00, 0x00, 0x00, 0x01, 0x00}}, L"08-0x0"},          // folds onto all-zero
    {{{0x34, 0x12, 0xEF, 0xBE, 0x34, 0x12}}, L"08-0xbeef0000"},   // bytes 2 and 3 pass unchanged
    {{{0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF}}, L"08-0xffff"},       // last two bytes zero-extended
};

TEST(FormatMachineId, FoldsTheAddressIntoHexDigits) {
    for (const TextCase& c : kTextCases) {
        const MachineIdText text = FormatMachineId(c.address);
        EXPECT_EQ(std::wstring(c.text), std::wstring(text.chars))
            << "address " << std::hex << int(c.address.bytes[0]) << ":" << int(c.address.bytes[1])
            << ":" << int(c.address.bytes[2]) << ":" << int(c.address.bytes[3]) << ":"
            << int(c.address.bytes[4]) << ":" << int(c.address.bytes[5]);
    }
}

TEST(FormatMachineId, FailureTextIsABareZero) {
    EXPECT_EQ(std::wstring(L"0"), std::wstring(kNoMachineIdText));
}

}  // namespace
