// A scripted stand-in for platform.h. A test (or a case of a table) resets
// it, sets the script (what each operation answers), runs the code under
// test, then reads the record (what was asked, what is still held).
#pragma once

#include "platform.h"

#include <gtest/gtest.h>

#include <stdint.h>
#include <string>
#include <vector>

struct FakeAdapter {
    UINT type;
    const uint8_t* address;  // 8 bytes, as the list's Address field holds them
    const char* ipAddress;
};

struct FakeNetbiosAnswers {
    UCHAR reset = NRC_GOODRET;
    UCHAR addName = NRC_GOODRET;
    UCHAR adapterStatus = NRC_GOODRET;
    UCHAR deleteName = NRC_GOODRET;
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
    FakeNetbiosAnswers netbios;
    uint8_t netbiosAddress[6] = {0x02, 0x4e, 0x42, 0x00, 0x00, 0x01};
    bool heapFails = false;
    int randValue = 0x1a2b;

    // --- record ---
    int librariesHeld = 0;
    int adapterListCalls = 0;
    int mallocCalls = 0;
    int mallocBlocksHeld = 0;
    int heapBlocksHeld = 0;
    int netbiosOpenDepth = 0;
    int heldWhenNetbiosOpened = 0;  // libraries and list buffers still held then
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
