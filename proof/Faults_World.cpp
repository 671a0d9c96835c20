// The areas, files and server that scripts of a campaign find.
#include "proof/Faults_World.h"

#include "Files/Base/Collector.h"
#include "Files/Base/IniFile.h"
#include "Files/Base/Json.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Run/Run_Command.h"
#include "Files/Support/Support_Data_Structures.h"
#include "proof/Faults_Files.h"
#include "tests/Http_answers.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace kx::proof {

using test::Call;
using test::Value;

// --- what is said ---------------------------------------------------------------------------------------------------

Witness::Witness() : m_before(std::exchange(dbg_csol, this)) {}

Witness::~Witness() {
    dbg_csol = m_before;
}

void Witness::Output(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vsnprintf(m_last, sizeof m_last, format, arguments);
    m_said = true;
    va_end(arguments);
}

bool Witness::TakeSaid() {
    std::string error;
    bool raised = KXTakeError(&error);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (raised) std::snprintf(m_last, sizeof m_last, "%s", error.c_str());
    return std::exchange(m_said, false) || raised;
}

// --- values ---------------------------------------------------------------------------------------------------------

std::string Describe(const RValue& value) {
    RValue copy = value;
    switch (value.kind & KIND_MASK) {
    case VALUE_STRING: return std::string("\"") + (value.str ? value.str->m_thing : "") + "\"";
    case VALUE_REAL:
        if (value.kind == VALUE_REAL) return std::to_string(value.real);
        break;
    case VALUE_UNDEFINED: return "undefined";
    default: break;
    }
    JsonTree tree(EncodeValue(&copy));
    return PrintJson(tree.Get());
}

namespace {

std::string DescribeGrid(const CDS_Grid& grid) {
    std::string text;
    for (int row = 0; row < grid.m_height; ++row) {
        for (int column = 0; column < grid.m_width; ++column) {
            RValueOwner cell;
            grid.Get(column, row, &cell.value);
            text += Describe(cell.value) + " ";
        }
    }
    return text;
}

template <class Container>
int CountIn(const DS_Table<Container>& table) {
    int count = 0;
    for (int i = 1; i < table.length; ++i) {
        if (table.arr[i]) ++count;
    }
    return count;
}

int OpenSlots() {
    auto text = std::count_if(std::begin(filestatus), std::end(filestatus), [](int status) { return status; });
    return static_cast<int>(text + std::count(std::begin(bfilestatus), std::end(bfilestatus), true));
}

}  // namespace

bool World::HoldsFiles() {
    return OpenSlots() > 0 || g_IniFile;
}

int World::CountHoldings() {
    DS_AutoMutex lock;
    return OpenSlots() + (g_IniFile ? 1 : 0) + g_kxFindData.m_numFiles + CountIn(themaps) + CountIn(thelists) +
           CountIn(thegrids);
}

std::string World::Holdings() {
    DS_AutoMutex lock;
    std::string text = std::to_string(OpenSlots()) + " open, document " + (g_IniFile ? "yes" : "no") + ", search " +
                       std::to_string(g_kxFindData.m_numFiles) + ":";
    for (int i = 0; i < g_kxFindData.m_numFiles; ++i) {
        text += std::string(" ") + g_kxFindData.m_files[i];
    }
    std::multiset<std::string> containers;  // which index each has is nobody's promise
    for (int i = 1; i < themaps.length; ++i) {
        if (themaps.arr[i]) containers.insert(Describe({{static_cast<double>(i)}, 0, KIND_DS_MAP}));
    }
    for (int i = 1; i < thelists.length; ++i) {
        if (thelists.arr[i]) containers.insert(Describe({{static_cast<double>(i)}, 0, KIND_DS_LIST}));
    }
    for (int i = 1; i < thegrids.length; ++i) {
        if (thegrids.arr[i]) containers.insert(DescribeGrid(*thegrids.arr[i]));
    }
    for (const std::string& each : containers) {
        text += " " + each;
    }
    return text;
}

// --- the world ------------------------------------------------------------------------------------------------------

World::World() : m_server(test::Each(AnswerTo)) {
    InitFileFunctions();
    for (const auto& [name, contents] : FirstFiles()) {
        test::WriteWholeFile(At(name), contents);
    }
    m_first = Files();
    Restart();
    static char script[] = "game.lua";
    static char parameter[] = "a parameter that is longer than what fits a short text";
    static char* const parameters[] = {script, parameter};
    if (SetParameters(2, parameters) != 0) throw std::runtime_error("no parameters");
}

World::~World() {
    LoadSave::Shutdown();
}

void World::Restart() const {
    bool set = LoadSave::SetSaveArea(At("save").c_str()) == 0 && LoadSave::SetBundleArea(At("bundle").c_str()) == 0;
    if (!set) throw std::runtime_error("the areas cannot be set");
}

void World::Reset() {
    for (const auto& [name, contents] : Files()) {
        if (!m_first.count(name)) fs::remove_all(At(name));
    }
    test::Snapshot now = Files();
    for (const auto& [name, contents] : m_first) {
        auto found = now.find(name);
        if (found != now.end() && found->second == contents) continue;
        if (contents == "<directory>") {
            fs::create_directories(At(name));
        } else {
            test::WriteWholeFile(At(name), contents);
        }
    }
    if (std::exchange(m_archiveShipped, false)) Restart();
}

void World::ShipArchive() {
    if (LoadSave::SetBundleArea(At("game.zip").c_str()) != 0) throw std::runtime_error("no archive");
    m_archiveShipped = true;
}

void World::EndHttp() {
    AwaitEvents();
    LoadSave::Shutdown();
}

void World::Settle(bool failed) {
    if (failed) LoadSave::DiscardUnfinished();
    for (int id = 1; id < MAXFILE; ++id) {
        if (filestatus[id] != FILE_CLOSED) Call("file_text_close", {id});
        MemoryManager::Free(std::exchange(textfiles[id].name, nullptr));  // what a failed open leaves
    }
    for (int id = 1; id < MAXBFILE; ++id) {
        if (bfilestatus[id]) Call("file_bin_close", {id});
        MemoryManager::Free(std::exchange(binfiles[id].name, nullptr));
    }
    MemoryManager::Free(KXTRQ_ini_close());
    Call("file_find_close");
    for (int i = 1; i < themaps.length; ++i) {
        FreeDsMap(i);
    }
    for (int i = 1; i < thelists.length; ++i) {
        FreeDsList(i);
    }
    for (int i = 1; i < thegrids.length; ++i) {
        FreeDsGrid(i);
    }
    Collector::Collect();
}

std::string World::AwaitEvents() {
    constexpr int kLongest = 30 * 1000;
    std::string all;
    while (LoadSave::RequestsInFlight() > 0) {
        ASYNC_EVENT event{};
        if (!LoadSave::NextEvent(kLongest, &event)) throw std::runtime_error("a request hangs");
        {
            DS_AutoMutex lock;
            CDS_Map* map = event.m_mapSerial ? themaps.arr[event.m_map] : nullptr;
            for (const char* name : {"status", "http_status", "result"}) {
                Value key(name);
                const RValue* value = map ? map->Find(&key.Get()) : nullptr;
                if (value) all += std::string(name) + "=" + Describe(*value) + " ";
            }
        }
        LoadSave::ReleaseEvent(event);
    }
    return all;
}

}  // namespace kx::proof
