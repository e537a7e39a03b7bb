// A scripted stand-in for platform.h. A test sets the script (what each
// operation answers), runs the code under test, then reads the record (what
// was asked, what is still held). Fake() is reset by FakePlatformTest.
#pragma once

#include "platform.h"

#include <gtest/gtest.h>

#include <stdint.h>
#include <string>
#include <vector>

struct FakeAdapter {
    UINT type;
    uint8_t address[8];
    const char* ipAddress;
};

struct FakeNetbiosAnswers {
    UCHAR reset = NRC_GOODRET;
    UCHAR addName = NRC_GOODRET;
    UCHAR adapterStatus = NRC_GOODRET;
    UCHAR deleteName = NRC_GOODRET;
    bool fillsStatus = true;  // false: a successful status request writes nothing
};

struct FakePlatform {
    // --- script ---
    bool versionAnswers = true;
    DWORD platformId = VER_PLATFORM_WIN32_NT;
    DWORD majorVersion = 10;
    bool hasIphlpapi = true;
    bool hasGetAdaptersInfo = true;
    DWORD sizeQueryAnswer = ERROR_BUFFER_OVERFLOW;
    DWORD listAnswer = ERROR_SUCCESS;
    std::vector<FakeAdapter> adapters;
    bool mallocFails = false;
    bool hasNetbios = true;
    FakeNetbiosAnswers netbios;
    uint8_t netbiosAddress[6] = {0x02, 0x4e, 0x42, 0x00, 0x00, 0x01};
    bool heapFails = false;
    int randValue = 0x1a2b;

    // --- record ---
    std::vector<std::wstring> librariesLoaded;
    std::vector<std::string> procsLookedUp;
    int librariesHeld = 0;
    int adapterListCalls = 0;
    int mallocCalls = 0;
    int mallocBlocksHeld = 0;
    int heapBlocksHeld = 0;
    int netbiosOpenDepth = 0;
    int netbiosSessions = 0;
    std::vector<NCB> requests;
    std::string output;

    std::vector<UCHAR> Commands() const;
};

FakePlatform& Fake();

// A fresh script and record, for a test or for one case of a table.
FakePlatform& ResetFake();

// Fails the current test if anything acquired through the platform is
// still held; `context` names the case.
void ExpectNothingHeld(const std::string& context);

// Resets the fake before each test and checks that nothing is held after it.
class FakePlatformTest : public testing::Test {
protected:
    void SetUp() override { ResetFake(); }
    void TearDown() override { ExpectNothingHeld("end of test"); }
};
