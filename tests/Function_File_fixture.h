#pragma once

#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"

namespace kx::test {

/// Empty areas, empty tables, a console that is watched. Maps and lists that a test makes go with it.
class BuiltInsTest : public AreasTest {
protected:
    void SetUp() override {
        AreasTest::SetUp();
        InitFileFunctions();
    }

    void TearDown() override {
        FINALIZE_Function_File();
        InitBinFiles();
        Call("file_find_close");
        TakeError();
        FreeContainers();
        AreasTest::TearDown();
    }

    CapturingConsole m_console;

private:
    static void FreeContainers() {
        for (int i = 1; i < themaps.length; ++i) {
            FreeDsMap(i);
        }
        for (int i = 1; i < thelists.length; ++i) {
            FreeDsList(i);
        }
    }
};

}  // namespace kx::test
