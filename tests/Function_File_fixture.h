#pragma once

#include "Files/Function/Function_File_Internal.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"

namespace kx::test {

/// Empty areas, empty tables, a console that is watched.
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
        AreasTest::TearDown();
    }

    CapturingConsole m_console;
};

}  // namespace kx::test
