// Resource and command identifiers shared by kelvo.rc and the program.
#pragma once

#define IDD_KELVO_DIALOG 102
#define IDR_MAINFRAME 128
#define IDC_MACHINE_ID 1000

// The command that asks for the program's help.
#define ID_HELP 0xE146
