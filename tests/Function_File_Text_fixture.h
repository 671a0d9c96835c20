#pragma once

#include "Files/Function/Function_File_Internal.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"

#include <sys/stat.h>

namespace kx::test {

/// Empty areas, an empty table, a console that is watched.
class TextFiles : public AreasTest {
protected:
    void SetUp() override {
        AreasTest::SetUp();
        InitFileFunctions();
    }

    void TearDown() override {
        for (int id = 1; id < MAXFILE; ++id) {
            Call("file_text_close", {id});
            MemoryManager::Free(textfiles[id].name);
        }
        InitTextFiles();
        TakeError();
        AreasTest::TearDown();
    }

    CapturingConsole m_console;
};

}  // namespace kx::test
