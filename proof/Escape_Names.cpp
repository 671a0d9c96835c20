// The names that are tried.
#include "proof/Escape_Names.h"

#include "Files/Base/Limits.h"

#include <unistd.h>

namespace kx::proof {
namespace {

struct Pattern {
    const char* text;  ///< {save}, {bundle}, {out} and {base} stand for paths, {pid} for the process
    Reach reach;
};

constexpr Reach kNowhere = Reach::nowhere;
constexpr Reach kAbsent = Reach::absent;
constexpr Reach kTrap = Reach::throughTrap;
constexpr Reach kInside = Reach::inside;

const Pattern kStepping[] = {
    {"..", kNowhere},
    {"../", kNowhere},
    {"..\\", kNowhere},
    {"../outside", kNowhere},
    {"../outside/secret.txt", kNowhere},
    {"..\\outside\\secret.txt", kNowhere},
    {"../outside\\secret.txt", kNowhere},
    {"..//outside//secret.txt", kNowhere},
    {".././outside/./secret.txt", kNowhere},
    {"./../outside/secret.txt", kNowhere},
    {".//..//outside/secret.txt", kNowhere},
    {".\\..\\outside\\new.txt", kNowhere},
    {"folder/../../outside/secret.txt", kNowhere},
    {"folder\\..\\..\\outside\\secret.txt", kNowhere},
    {"folder/../../outside/new.txt", kNowhere},
    {"missing/../../outside/secret.txt", kNowhere},
    {"a/b/../../../outside/secret.txt", kNowhere},
    {"inside.txt/../../outside/secret.txt", kNowhere},
    {"../../../../../../../../../../../../etc/passwd", kNowhere},
    {"../save/../outside/secret.txt", kNowhere},
    {"../bundle/shipped.txt", kNowhere},
    {"../outside/*", kNowhere},
    {"../*", kNowhere},
    {"../outside/fifo", kNowhere},
    {"../outside/secret.zip", kNowhere},
    {"../elsewhere/save/inside.txt", kNowhere},
    {"folder/..", kInside},
    {"folder/../inside.txt", kInside},
    {"folder\\..\\inside.txt", kInside},
    {"missing/../inside.txt", kInside},
    {"./inside.txt", kInside},
    {".\\inside.txt", kInside},
    {".", kInside},
    {"./", kInside},
    {"folder/.", kInside},
    {"folder//file.txt", kInside},
    {"folder\\file.txt", kInside},
    {"*", kInside},
    {"...", kAbsent},
    {".../outside/secret.txt", kAbsent},
    {"....//outside/secret.txt", kAbsent},
    {"....\\\\outside\\secret.txt", kAbsent},
    {"..a/../secret.txt", kAbsent},
    {".. /outside/secret.txt", kAbsent},
    {" ../outside/secret.txt", kAbsent},
    {"..;/outside/secret.txt", kAbsent},
};

const Pattern kAbsolute[] = {
    {"/", kNowhere},
    {"//", kNowhere},
    {"\\", kNowhere},
    {"/etc/passwd", kNowhere},
    {"\\etc\\passwd", kNowhere},
    {"//etc/passwd", kNowhere},
    {"\\\\server\\share\\file", kNowhere},
    {"//server/share/file", kNowhere},
    {"\\\\?\\{out}\\secret.txt", kNowhere},
    {"\\\\.\\{out}\\secret.txt", kNowhere},
    {"/tmp", kNowhere},
    {"/dev/null", kNowhere},
    {"/dev/zero", kNowhere},
    {"/dev/stdin", kNowhere},
    {"/dev/fd/0", kNowhere},
    {"/proc/self/environ", kNowhere},
    {"/proc/self/maps", kNowhere},
    {"/proc/self/mem", kNowhere},
    {"/proc/self/cwd/secret.txt", kNowhere},
    {"/proc/self/root/etc/passwd", kNowhere},
    {"/proc/self/root{save}/inside.txt", kNowhere},
    {"/proc/self/root{out}/secret.txt", kNowhere},
    {"/proc/{pid}/cwd/secret.txt", kNowhere},
    {"/proc/thread-self/cwd/secret.txt", kNowhere},
    {"/proc/self/fd/0", kNowhere},
    {"/proc/self/fd/3", kNowhere},
    {"/proc/self/fd/4", kNowhere},
    {"/proc/self/fd/5/secret.txt", kNowhere},
    {"{out}", kNowhere},
    {"{out}/", kNowhere},
    {"{out}/secret.txt", kNowhere},
    {"{out}/new.txt", kNowhere},
    {"{out}/new/new.txt", kNowhere},
    {"{out}/fifo", kNowhere},
    {"{out}/socket", kNowhere},
    {"{out}/secret.zip", kNowhere},
    {"{base}", kNowhere},
    {"{base}/*", kNowhere},
    {"{base}/linked/save.dat", kNowhere},
    {"{save}/../outside/secret.txt", kNowhere},
    {"{save}/../outside/new.txt", kNowhere},
    {"{save}/folder/../../outside/secret.txt", kNowhere},
    {"{save}\\..\\outside\\secret.txt", kNowhere},
    {"{save}..", kNowhere},
    {"{save}-other/secret.txt", kNowhere},
    {"{bundle}/../outside/secret.txt", kNowhere},
    {"{bundle}-other/secret.txt", kNowhere},
    {"{save}", kInside},
    {"{save}/", kInside},
    {"{save}/inside.txt", kInside},
    {"{save}//inside.txt", kInside},
    {"{save}\\inside.txt", kInside},
    {"{save}/./folder/../inside.txt", kInside},
    {"{bundle}", kInside},
    {"{bundle}/shipped.txt", kInside},
    {"{bundle}/new.txt", kAbsent},
    {"{save}/secret.txt", kAbsent},
};

const Pattern kForeign[] = {
    {"C:", kAbsent},
    {"C:\\", kAbsent},
    {"C:/secret.txt", kAbsent},
    {"C:..\\outside\\secret.txt", kAbsent},
    {"C:\\..\\..\\outside\\secret.txt", kNowhere},
    {"c:secret.txt", kAbsent},
    {"secret.txt::$DATA", kAbsent},
    {"secret.txt:stream", kAbsent},
    {"CON", kAbsent},
    {"NUL", kAbsent},
    {"~", kAbsent},
    {"~/secret.txt", kAbsent},
    {"~root/.profile", kAbsent},
    {"$HOME/secret.txt", kAbsent},
    {"${PWD}/secret.txt", kAbsent},
    {"%TEMP%\\secret.txt", kAbsent},
    {"`cat secret.txt`", kAbsent},
    {"|cat secret.txt", kAbsent},
    {"file:secret.txt", kAbsent},
    {"file://{out}/secret.txt", kAbsent},
    {"file:///etc/passwd", kAbsent},
    {"http://127.0.0.1/../../../../outside/secret.txt", kNowhere},
    {"%2e%2e/outside/secret.txt", kAbsent},
    {"%2e%2e%2foutside%2fsecret.txt", kAbsent},
    {"..%2foutside%2fsecret.txt", kAbsent},
    {"..%5coutside%5csecret.txt", kAbsent},
    {"..%00/secret.txt", kAbsent},
    {"proc/self/cwd/secret.txt", kAbsent},
    {"dev/fd/3", kAbsent},
    {"%s%n%s%n", kAbsent},
    {"-rf", kAbsent},
    {"secret.txt", kAbsent},
    {"sub/secret.txt", kAbsent},
    {"secret.txt.", kAbsent},
    {"secret.txt ", kAbsent},
    {" secret.txt", kAbsent},
    {"secret.txt/", kAbsent},
    {"secret.txt/.", kAbsent},
    {"sub. . .", kAbsent},
    {"inside.txt/secret.txt", kAbsent},
    {"inside.txt.", kAbsent},
    {"inside.txt ", kAbsent},
    {"INSIDE.TXT", kAbsent},
    {"s*cret.txt", kAbsent},
    {"[s]ecret.txt", kAbsent},
};

const Pattern kBroken[] = {
    {"", kNowhere},
    {" ", kNowhere},
    {"   ", kNowhere},
    {"a\nb", kNowhere},
    {"\n", kNowhere},
    {"secret.txt\n", kNowhere},
    {"\tsecret.txt", kNowhere},
    {"secret.txt\r", kNowhere},
    {"\x01", kNowhere},
    {"a\x1b[2Jb", kNowhere},
    {"\x7f", kNowhere},
    {"inside.txt\x01/../secret.txt", kNowhere},
    {"\xC2\x85", kNowhere},
    {"\xC0\xAE\xC0\xAE/outside/secret.txt", kNowhere},                // ".." in too many bytes
    {"\xC0\xAE\xC0\xAE\xC0\xAFoutside\xC0\xAFsecret.txt", kNowhere},  // "/" too
    {"\xE0\x80\xAE\xE0\x80\xAE/outside/secret.txt", kNowhere},
    {"\xF0\x80\x80\xAE\xF0\x80\x80\xAE/outside/secret.txt", kNowhere},
    {"..\xC1\x9Coutside\xC1\x9Csecret.txt", kNowhere},  // "\" in too many bytes
    {"a\xC0\x80/../secret.txt", kNowhere},              // a zero byte in too many
    {"\xFF", kNowhere},
    {"\x80secret.txt", kNowhere},
    {"secret.txt\xC3", kNowhere},
    {"\xED\xA0\x80", kNowhere},                                // half a surrogate pair
    {"\xF4\x90\x80\x80", kNowhere},                            // beyond the last character
    {"\xEF\xBC\x8E\xEF\xBC\x8E/outside/secret.txt", kAbsent},  // full-width dots
    {"..\xE2\x88\x95outside\xE2\x88\x95secret.txt", kAbsent},  // division slashes
    {"..\xE2\x81\x84outside", kAbsent},
    {"\xE2\x80\xAEtxt.terces", kAbsent},  // right to left
    {".kxtmp-1", kNowhere},
    {"folder/.kxtmp-secret", kNowhere},
    {".kxtmp-x/../secret.txt", kNowhere},
};

const Pattern kThroughTrap[] = {
    {"trap", kTrap},
    {"trap/", kTrap},
    {"trap/.", kTrap},
    {"./trap", kTrap},
    {"trap\\", kTrap},
    {"trap*", kTrap},
    {"trap/secret.txt", kTrap},
    {"trap\\secret.txt", kTrap},
    {"trap//secret.txt", kTrap},
    {"trap/./secret.txt", kTrap},
    {"trap/secret.zip", kTrap},
    {"trap/sub/secret.txt", kTrap},
    {"trap/sub/../secret.txt", kTrap},
    {"trap/sub", kTrap},
    {"trap/empty", kTrap},
    {"trap/new.txt", kTrap},
    {"trap/new/new.txt", kTrap},
    {"trap/fifo", kTrap},
    {"trap/outside/secret.txt", kTrap},
    {"trap{out}/secret.txt", kTrap},
    {"trap/trap", kTrap},
    {"trap/trap/secret.txt", kTrap},
    {"trap/a/trap", kTrap},
    {"a/trap", kTrap},
    {"a/trap/secret.txt", kTrap},
    {"a/trap/new.txt", kTrap},
    {"a\\trap\\secret.txt", kTrap},
    {"a/b/trap", kTrap},
    {"a/b/trap/secret.txt", kTrap},
    {"a/b/trap/sub/secret.txt", kTrap},
    {"a/b/trap/new/new/new.txt", kTrap},
    {"{save}/trap", kTrap},
    {"{save}/trap/secret.txt", kTrap},
    {"{save}/a/b/trap/secret.txt", kTrap},
    {"{bundle}/trap", kTrap},
    {"{bundle}/trap/secret.txt", kTrap},
    {"{bundle}/a/trap/secret.txt", kTrap},
    {"trap/../inside.txt", kInside},
    {"trap/..", kInside},
    {"trap/../../outside/secret.txt", kNowhere},
    {"a/../trap/secret.txt", kTrap},
    {"trap/../trap/secret.txt", kTrap},
    {"a/b/trap/../../../inside.txt", kInside},
    {"a/b/trap/../../../secret.txt", kAbsent},
};

void Substitute(std::string* text, const std::string& placeholder, const std::string& value) {
    size_t at = text->find(placeholder);
    if (at != std::string::npos) text->replace(at, placeholder.size(), value);
}

/// Around every length at which something ends: components, what the module resolves into, what the system takes.
void AddLong(const std::string& save, std::vector<HostileName>* names) {
    for (size_t length : {255u, 256u, 300u}) {
        names->push_back({std::string(length, 'n'), kAbsent});
        names->push_back({"folder/" + std::string(length, 'n') + "/x", kAbsent});
    }
    std::string deep;
    while (deep.size() < 8192) {
        deep += std::string(99, 'd') + "/";
    }
    for (int length : {1021, 1022, 1023, 1024, 1025, 2046, 2047, 2048, 2049, 4095, 4096, 8000}) {
        auto size = static_cast<size_t>(length);
        std::string name = deep.substr(0, size - 1) + "x";
        names->push_back({name, length < kMaxPath ? kAbsent : kNowhere});
        names->push_back({(save + "/" + name).substr(0, size - 1) + "x", length < kMaxLongPath ? kAbsent : kNowhere});
        std::string dots;
        while (dots.size() + 3 < size) {
            dots += "../";
        }
        names->push_back({dots + "x", kNowhere});
    }
    std::string back = "folder";
    for (int i = 0; i < 100; ++i) {
        back += "/../folder";
    }
    names->push_back({back + "/file.txt", kInside});
    names->push_back({back + "/../../outside/secret.txt", kNowhere});
    names->push_back({std::string(400, '/') + "etc/passwd", kNowhere});
    names->push_back({"folder" + std::string(400, '/') + "file.txt", kInside});
}

}  // namespace

std::vector<HostileName> HostileNames(const World& world, const std::string& save, const std::string& bundle) {
    std::vector<HostileName> names;
    auto add = [&](const Pattern& pattern) {
        std::string text = pattern.text;
        Substitute(&text, "{save}", save);
        Substitute(&text, "{bundle}", bundle);
        Substitute(&text, "{out}", world.Outside());
        Substitute(&text, "{base}", world.Base());
        Substitute(&text, "{pid}", std::to_string(::getpid()));
        names.push_back({text, pattern.reach});
    };
    for (const Pattern& pattern : kStepping) {
        add(pattern);
    }
    for (const Pattern& pattern : kAbsolute) {
        add(pattern);
    }
    for (const Pattern& pattern : kForeign) {
        add(pattern);
    }
    for (const Pattern& pattern : kBroken) {
        add(pattern);
    }
    for (const Pattern& pattern : kThroughTrap) {
        add(pattern);
    }
    AddLong(save, &names);
    return names;
}

std::string Shown(const std::string& name) {
    constexpr size_t kMost = 120;
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string shown;
    for (char c : name.substr(0, kMost)) {
        auto byte = static_cast<unsigned char>(c);
        bool plain = byte >= ' ' && byte < 0x7F;
        shown += plain ? std::string(1, c) : std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15];
    }
    return name.size() > kMost ? shown + "… (" + std::to_string(name.size()) + " bytes)" : shown;
}

}  // namespace kx::proof
