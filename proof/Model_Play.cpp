// Random scripts.
#include "proof/Model_Play.h"

#include <algorithm>

namespace kx::proof {
namespace {

/// Some are in the bundle, some are files at times and directories at others.
constexpr const char* kPlaces[] = {"a.txt",
                                   "b.txt",
                                   "d/a.txt",
                                   "d/e/b.txt",
                                   "x/y.bin",
                                   ".hidden.txt",
                                   "x",
                                   "d",
                                   "d/e",
                                   "lib",
                                   "shared.txt",
                                   "lib/shipped.txt",
                                   "lib/x.bin",
                                   "settings.ini",
                                   "cfg/game.ini",
                                   "a.txt/under",
                                   "",
                                   "lib/new.txt"};
constexpr const char* kIniPlaces[] = {"settings.ini", "cfg/game.ini", "cfg/other.ini", "lib/x.ini"};
constexpr const char* kMasks[] = {"*",     "*.*",        "*.txt",     "d/*",     "d/e/*.txt", "lib/*",
                                  "?.txt", "[ab].txt",   "[!a].txt",  "x/*.b?n", "missing/*", "[a-c]*",
                                  ".h*",   "lib/s*.txt", "cfg/*.ini", "*a*"};
constexpr const char* kNowhere[] = {"",
                                    "  ",
                                    "..",
                                    "../a.txt",
                                    "/etc/passwd",
                                    "d/../../save/a.txt",
                                    "\\a.txt",
                                    "C:/data/a.ini",
                                    "\\\\server\\share\\a",
                                    "d.e/a",
                                    "c:"};
constexpr const char* kWords[] = {"",
                                  "word",
                                  "12",
                                  "-3.5 ",
                                  " 7.25e2 ",
                                  "two words",
                                  "line\n",
                                  "crlf\r\nnext",
                                  "\n\n",
                                  "+1",
                                  "a long text that is longer than the others by some"};
constexpr const char* kSections[] = {"a", "b c", "Player"};
constexpr const char* kKeys[] = {"x", "key two", "n"};
constexpr const char* kValues[] = {"1", "text with blanks", "-2.5", "", "7e2"};
constexpr const char* kDocuments[] = {"", "[a]\nx=1\n", "[a]\nx=1\n\n[b c]\nkey two=3\nn=\n", "[Player]\n"};
constexpr int kModes[] = {0, 1, 2, 2, 5};
constexpr const char* kNameParts[] = {"filename_name", "filename_path", "filename_dir", "filename_drive",
                                      "filename_ext"};
constexpr const char* kExtensions[] = {"", ".dat", "dat", "."};
constexpr double kFilters[] = {0, 2, 16, 18};

constexpr unsigned int kHoarders = 4;  // one script in so many hardly closes a file

void Forget(std::vector<int>* ids, double id) {
    ids->erase(std::remove(ids->begin(), ids->end(), static_cast<int>(id)), ids->end());
}

}  // namespace

Player::Player(unsigned int seed, std::string savePath, std::string bundlePath)
    : m_random(seed), m_hoards(seed % kHoarders == 0), m_savePath(std::move(savePath)),
      m_bundlePath(std::move(bundlePath)) {}

/// One place has many names.
std::string Player::Spelled(const std::string& place) {
    std::string backslashes = place;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    switch (Below(16)) {
    case 0: return "./" + place;
    case 1: return backslashes;
    case 2: return "d/../" + place;
    case 3: return m_savePath + "/" + place;
    case 4: return m_bundlePath + "/" + place;
    case 5: return m_savePath + "/./d/../" + place;
    case 6: return m_savePath + "/../bundle/" + place;
    default: return place.empty() ? "." : place;
    }
}

std::string Player::Name() {
    return Below(40) == 0 ? Any(kNowhere) : Spelled(Any(kPlaces));
}

/// Mostly of a file that is open.
int Player::Id(const std::vector<int>& open) {
    bool any = open.empty() || Below(50) == 0;
    return any ? static_cast<int>(Below(36)) - 2 : open[Below(static_cast<unsigned int>(open.size()))];
}

/// Whether a close is left out.
bool Player::Hoards() {
    return m_hoards && Below(8) != 0;
}

Command Player::OfText() {
    bool opens = m_readers.empty() || m_writers.empty() ? Below(3) != 0 : false;
    unsigned int choice = opens ? Below(4) : Below(18);
    bool closes = choice >= 4 && choice <= 7;
    if (closes && Hoards()) choice = Below(3);
    switch (choice) {
    case 0: return {"file_text_open_read", {Name()}};
    case 1: return {"file_text_open_write", {Name()}};
    case 2: return {"file_text_open_append", {Name()}};
    case 3: return {"file_text_open_from_string", {Any(kWords)}};
    case 4:
    case 5: return {"file_text_close", {Id(m_readers)}};
    case 6:
    case 7: return {"file_text_close", {Id(m_writers)}};
    case 8: return {"file_text_eof", {Id(m_readers)}};
    case 9: return {"file_text_eoln", {Id(m_readers)}};
    case 10: return {"file_text_read_string", {Id(m_readers)}};
    case 11: return {"file_text_readln", {Id(m_readers)}};
    case 12: return {"file_text_read_real", {Id(m_readers)}};
    case 13: return {"file_text_write_real", {Id(m_writers), Any(kWrittenNumbers).value}};
    case 14: return {"file_text_writeln", {Id(m_writers)}};
    default: return {"file_text_write_string", {Id(m_writers), Any(kWords)}};
    }
}

Command Player::OfBinary() {
    bool opens = m_binaries.empty() && Below(3) != 0;
    unsigned int choice = opens ? 0 : Below(14);
    bool closes = choice == 3 || choice == 4;
    if (closes && Hoards()) choice = 0;
    switch (choice) {
    case 0:
    case 1: return {"file_bin_open", {Name(), Any(kModes)}};
    case 2: return {"file_bin_rewrite", {Id(m_binaries)}};
    case 3:
    case 4: return {"file_bin_close", {Id(m_binaries)}};
    case 5: return {"file_bin_position", {Id(m_binaries)}};
    case 6: return {"file_bin_size", {Id(m_binaries)}};
    case 7: return {"file_bin_seek", {Id(m_binaries), static_cast<int>(Below(80)) - 2}};
    case 8:
    case 9:
    case 10: return {"file_bin_read_byte", {Id(m_binaries)}};
    default: return {"file_bin_write_byte", {Id(m_binaries), static_cast<int>(Below(600)) - 100}};
    }
}

Command Player::OfFiles() {
    switch (Below(18)) {
    case 16: return {Any(kNameParts), {Below(2) ? Any(kPlaces) : Name()}};
    case 17: return {"filename_change_ext", {Name(), Any(kExtensions)}};
    case 0:
    case 1: return {"file_exists", {Name()}};
    case 2:
    case 3: return {"file_delete", {Name()}};
    case 4:
    case 5: return {"file_rename", {Name(), Name()}};
    case 6:
    case 7: return {"file_copy", {Name(), Name()}};
    case 8: return {"file_attributes", {Name(), 0}};
    case 9: return {"directory_exists", {Name()}};
    case 10: return {"directory_create", {Name()}};
    case 11: return {"directory_destroy", {Name()}};
    case 12:
    case 13: return {"file_find_first", {Spelled(Any(kMasks)), Any(kFilters)}};
    case 14: return {"file_find_next"};
    default: return {Below(4) == 0 ? "file_find_close" : "file_find_next"};
    }
}

Command Player::OfIni() {
    if (!m_hasDocument && Below(3) != 0) return {"ini_open", {Spelled(Any(kIniPlaces))}};
    std::string section = Any(kSections);
    std::string key = Any(kKeys);
    switch (Below(12)) {
    case 0:
    case 1: return {"ini_open", {Below(8) == 0 ? Name() : Spelled(Any(kIniPlaces))}};
    case 2: return {"ini_open_from_string", {Any(kDocuments)}};
    case 3:
    case 4: return {"ini_close"};
    case 5: return {"ini_read_string", {section, key, Any(kWords)}};
    case 6: return {"ini_read_real", {section, key, Any(kWrittenNumbers).value}};
    case 7: return {"ini_key_exists", {section, key}};
    case 8: return {"ini_section_exists", {section}};
    case 9: return Below(2) ? Command{"ini_key_delete", {section, key}} : Command{"ini_section_delete", {section}};
    case 10: return {"ini_write_real", {section, key, Any(kWrittenNumbers).value}};
    default: return {"ini_write_string", {section, key, Any(kValues)}};
    }
}

Command Player::Next() {
    switch (Below(200)) {
    case 0: return {kShutdown};
    case 1: return {kFinalize};
    case 2: return {kDiscard};
    default: break;
    }
    switch (Below(10)) {
    case 0:
    case 1:
    case 2: return OfText();
    case 3:
    case 4:
    case 5: return OfBinary();
    case 6: return OfIni();
    default: return OfFiles();
    }
}

void Player::Note(const Command& command, const Answer& answer) {
    if (command.name == kFinalize) m_binaries.clear();
    if (command.name.rfind("ini_open", 0) == 0) m_hasDocument = true;
    if (command.name == "ini_close") m_hasDocument = false;
    bool opened = !answer.isText && answer.real > 0;
    if (opened && command.name == "file_bin_open") m_binaries.push_back(static_cast<int>(answer.real));
    if (opened && command.name.rfind("file_text_open_", 0) == 0) {
        bool reading = command.name == "file_text_open_read" || command.name == "file_text_open_from_string";
        (reading ? m_readers : m_writers).push_back(static_cast<int>(answer.real));
    }
    if (command.name == "file_bin_close") Forget(&m_binaries, command.arguments[0].real);
    if (command.name == "file_text_close") {
        Forget(&m_readers, command.arguments[0].real);
        Forget(&m_writers, command.arguments[0].real);
    }
}

}  // namespace kx::proof
