// What there is in a campaign's world, and the server beside it.
#include "proof/Faults_Files.h"

#include "proof/Faults_World.h"
#include "tests/Http_answers.h"
#include "tests/support/ZipBuilder.h"

namespace kx::proof {

using test::Deflated;
using test::ZipEntry;

const std::string kLong(20000, 'n');

const std::string kJsonText =
    R"({"player":{"name":"Ada the long-named, who fills a block","id":"@i64@20000000000001$i64$"},)"
    R"("items":[1,2.5,true,null,"a text that is longer than a short one",[{"name":"x"},{"name":"y"}]],"empty":{},)"
    R"("c1":1,"c2":2,"c3":3,"c4":4,"c5":5,"c6":6,"c7":7,"c8":8,"c9":9,"c10":10,"c11":11,"c12":12,"c13":13,"c14":14})";

namespace {

std::string Pack() {
    ZipEntry folder{"empty/"};
    return test::Build({{"replaced.txt", "new"},
                        Deflated("d/fresh.txt", std::string(30000, 'f')),
                        folder,
                        Deflated("d/e/deeper.txt", "x"),
                        {"none.txt", ""}});
}

test::Files Shipped() {
    return {{"shipped.txt", "first line\nsecond line of the shipped file\n" + std::string(3000, 's') + "\n"},
            {"shipped.bin", std::string(3000, 'b')},
            {"shipped.ini", "[shipped]\nkey=value\n"},
            {"levels/one.json", kJsonText},
            {"levels/two.json", "{}"},
            {"pack.zip", Pack()},
            {"table.csv", "name,score\nAda,3100\n\"Grace, of the \"\"long\"\" name that needs room\",4000\n"}};
}

test::Files Saved() {
    return {{"notes.txt", "first line\n12.5 second line\n" + std::string(5000, 'o') + "\nlast line without an end"},
            {"data.bin", std::string(3000, 'd')},
            {"settings.ini", "; comment\n[audio]\nmusic=0.8\nsound=1\n[video]\nname=@text@%0A$text$\n"},
            {"table.csv", "a,b,c\n1,2,3\n\"quoted \"\"cell\"\"\",,a cell that is longer than a short text\n"},
            {"save.json", kJsonText},
            {"folder/a.txt", "a"},
            {"folder/b.txt", "b"},
            {"folder/deep/c.txt", "c"},
            {"folder/deep/.hidden", "h"},
            {"unpacked/replaced.txt", "old"},
            {"untouched/keep.txt", "nothing may touch this"}};
}

}  // namespace

test::Files FirstFiles() {
    test::Files files;
    std::vector<ZipEntry> entries;
    for (const auto& [name, contents] : Shipped()) {
        files["bundle/" + name] = contents;
        entries.push_back(Deflated(name, contents));
    }
    for (const auto& [name, contents] : Saved()) {
        files["save/" + name] = contents;
    }
    files["game.zip"] = test::Build(entries);
    files["outside"] = "nothing may touch this";
    return files;
}

// --- the server -----------------------------------------------------------------------------------------------------

std::string AnswerTo(const std::string& request) {
    std::string line = test::RequestLine(request);
    if (line.find(" /moved ") != std::string::npos) return test::RedirectTo("/file");
    if (line.find(" /none ") != std::string::npos) return test::Answer("404 Not Found", "X-Reason: none\r\n", "none");
    if (line.find(" /echo ") != std::string::npos) return test::Ok(test::BodyOf(request));
    return test::Answer("200 OK", "X-First: a field that is longer than a short text\r\nX-First: again\r\n", kLong);
}

}  // namespace kx::proof
