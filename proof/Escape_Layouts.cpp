// What is put into the areas.
#include "proof/Escape_Layouts.h"

#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

constexpr bool kBars = true;
constexpr bool kOpen = false;

void Link(const std::string& target, const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    fs::create_symlink(target, path);
}

void HardLink(const std::string& target, const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    fs::create_hard_link(target, path);
}

void Make(mode_t kind, const std::string& path) {
    if (::mknod(path.c_str(), kind | 0600, 0) != 0) throw std::runtime_error("cannot make " + path);
}

/// Links to one place from every depth of an area; a relative one steps out from each.
void LinkAtEachDepth(const std::string& area, const std::string& target) {
    bool absolute = target[0] == '/';
    Link(target, area + "/trap");
    Link(absolute ? target : "../" + target, area + "/a/trap");
    Link(absolute ? target : "../../" + target, area + "/a/b/trap");
}

/// A link to a descriptor that this process has open: the system follows it whatever directory it is in.
std::string DescriptorPath(const std::string& path) {
    int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) throw std::runtime_error("cannot open " + path);
    return "/proc/self/fd/" + std::to_string(file);
}

void MakeChain(const World& world, int hops) {
    for (int i = 0; i < hops; ++i) {
        Link("hop" + std::to_string(i + 1), world.Save("hop" + std::to_string(i)));
    }
    Link("../outside", world.Save("hop" + std::to_string(hops)));
    Link("hop0", world.Save("trap"));
}

/// A layout of links that all lead to one place.
Layout Links(const char* name, const std::string& target) {
    return {name, kBars, [target](const World& world) { LinkAtEachDepth(world.Save(), target); }};
}

Layout BundleLinks(const char* name, const std::string& target) {
    return {name, kBars, [target](const World& world) { LinkAtEachDepth(world.Bundle(), target); }};
}

void AddLinksToOutside(const World& world, std::vector<Layout>* layouts) {
    std::string out = world.Outside();
    std::string opened = DescriptorPath(out);
    layouts->push_back(Links("links to a directory outside", out));
    layouts->push_back(Links("relative links to a directory outside", "../outside"));
    layouts->push_back(Links("links to a file outside", out + "/secret.txt"));
    layouts->push_back(Links("relative links to a file outside", "../outside/secret.txt"));
    layouts->push_back(Links("links to an archive outside", out + "/secret.zip"));
    layouts->push_back(Links("dangling links to outside", out + "/new.txt"));
    layouts->push_back(Links("relative dangling links to outside", "../outside/new.txt"));
    layouts->push_back(Links("dangling links to a directory outside", out + "/new/new.txt"));
    layouts->push_back(Links("links with dots", out + "/./sub/..//"));
    layouts->push_back(Links("links up", ".."));
    layouts->push_back(Links("links up by way of a directory inside", "folder/../../outside"));
    layouts->push_back(Links("links out and in again", "../save/folder"));
    layouts->push_back(Links("links to the root", "/"));
    layouts->push_back(Links("links to the process's directory", "/proc/self/cwd"));
    layouts->push_back(Links("links to the process's root", "/proc/self/root"));
    layouts->push_back(Links("links to an open directory", opened));
    layouts->push_back(Links("links to an open file", DescriptorPath(out + "/secret.txt")));
    layouts->push_back(Links("links to open files", "/dev/fd"));
    layouts->push_back(Links("links to a FIFO outside", out + "/fifo"));
    layouts->push_back(Links("links to a socket outside", out + "/socket"));
    layouts->push_back(Links("links to an endless device", "/dev/zero"));
    layouts->push_back(Links("links to a terminal", "/dev/tty"));
    layouts->push_back(Links("links to what the process is", "/proc/self/environ"));
    layouts->push_back(Links("absolute links to the save area", world.Save("inside.txt")));
    layouts->push_back(Links("links to the bundle", world.Bundle()));
    layouts->push_back(Links("relative links to a file of the bundle", "../bundle/shipped.txt"));
    layouts->push_back(BundleLinks("links of the bundle to a directory outside", out));
    layouts->push_back(BundleLinks("relative links of the bundle to a directory outside", "../outside"));
    layouts->push_back(BundleLinks("relative links of the bundle to a file outside", "../outside/secret.txt"));
    layouts->push_back(BundleLinks("dangling links of the bundle", out + "/new.txt"));
    layouts->push_back(BundleLinks("links of the bundle to an open directory", opened));
    layouts->push_back(BundleLinks("links of the bundle to the save area", world.Save()));
}

void AddChains(std::vector<Layout>* layouts) {
    layouts->push_back({"a short chain of links to outside", kBars, [](const World& world) { MakeChain(world, 3); }});
    layouts->push_back({"a long chain of links to outside", kBars, [](const World& world) { MakeChain(world, 60); }});
    layouts->push_back({"a link to itself", kBars, [](const World& world) { Link("trap", world.Save("trap")); }});
    layouts->push_back({"links in a circle", kBars, [](const World& world) {
                            Link("folder/hop", world.Save("trap"));
                            Link("../trap", world.Save("folder/hop"));
                        }});
    layouts->push_back(
        {"a link beneath itself", kBars, [](const World& world) { Link("trap/trap", world.Save("trap")); }});
    layouts->push_back({"a link through a file", kBars,
                        [](const World& world) { Link("inside.txt/../../outside", world.Save("trap")); }});
    layouts->push_back({"a directory of links to outside", kOpen, [](const World& world) {
                            Link("../../outside/secret.txt", world.Save("trap/secret.txt"));
                            Link("../../outside/sub", world.Save("trap/sub"));
                            Link("../../outside/new.txt", world.Save("trap/new.txt"));
                            Link("../../outside/empty", world.Save("trap/empty"));
                        }});
    layouts->push_back({"a directory that has become a link", kBars, [](const World& world) {
                            Link(world.Outside(), world.Save("a"));
                            Link("../outside/a", world.Save("trap"));
                        }});
    layouts->push_back({"a directory of the bundle that has become a link", kBars, [](const World& world) {
                            Link("../outside", world.Bundle("a"));
                            Link("../outside/a", world.Bundle("trap"));
                        }});
    layouts->push_back({"links in both areas", kBars, [](const World& world) {
                            LinkAtEachDepth(world.Save(), "../outside/new");
                            LinkAtEachDepth(world.Bundle(), world.Outside());
                        }});
    layouts->push_back({"a file in the way of a directory of the bundle", kBars, [](const World& world) {
                            Link(world.Outside("secret.txt"), world.Save("trap"));
                            Link(world.Outside(), world.Bundle("trap"));
                        }});
}

void AddOtherKinds(std::vector<Layout>* layouts) {
    auto kind = [&](const char* name, mode_t mode) {
        layouts->push_back({name, kBars, [mode](const World& world) {
                                fs::create_directories(world.Save("a/b"));
                                Make(mode, world.Save("trap"));
                                Make(mode, world.Save("a/trap"));
                                Make(mode, world.Bundle("trap"));
                            }});
    };
    kind("FIFOs", S_IFIFO);
    kind("sockets", S_IFSOCK);
    test::TemporaryFolder probe;
    if (!test::MakeDevice(probe.Path() / "device")) return;
    layouts->push_back({"devices", kBars, [](const World& world) {
                            test::MakeDevice(world.Save("trap"));
                            test::MakeDevice(world.Bundle("trap"));
                        }});
}

void AddHarmless(const World& world, std::vector<Layout>* layouts) {
    layouts->push_back({"no links", kOpen, [](const World&) {}});
    layouts->push_back({"a plain file", kOpen, [](const World& in) {
                            test::WriteWholeFile(in.Save("trap"), "inside");
                            test::WriteWholeFile(in.Save("a/trap/secret.txt"), "inside");
                        }});
    layouts->push_back(
        {"links to a file inside", kOpen, [](const World& in) { LinkAtEachDepth(in.Save(), "inside.txt"); }});
    layouts->push_back({"links to a directory inside", kOpen, [](const World& in) {
                            test::WriteWholeFile(in.Save("folder/secret.txt"), "inside");
                            LinkAtEachDepth(in.Save(), "folder");
                        }});
    layouts->push_back(
        {"dangling links inside", kOpen, [](const World& in) { LinkAtEachDepth(in.Save(), "folder/new.txt"); }});
    layouts->push_back({"links to the area itself", kOpen, [](const World& in) { LinkAtEachDepth(in.Save(), "."); }});
    layouts->push_back({"hard links to a file outside", kOpen, [](const World& in) {
                            HardLink(in.Linked("save"), in.Save("trap"));
                            HardLink(in.Linked("save"), in.Save("a/trap/secret.txt"));
                            HardLink(in.Linked("bundle"), in.Bundle("trap"));
                        }});
    auto links = [](const World& in) {
        LinkAtEachDepth(in.Save(), in.Outside());
        LinkAtEachDepth(in.Bundle(), "../outside");
    };
    std::string elsewhere = world.Base() + "/elsewhere";
    layouts->push_back({"areas that are links", kBars, links, elsewhere + "/save", elsewhere + "/bundle"});
    layouts->push_back({"an area by way of a link", kBars, links, elsewhere + "/above/save", world.Bundle()});
    layouts->push_back(
        {"areas written with dots", kBars, links, world.Base() + "/elsewhere/../save", world.Base() + "//bundle"});
    layouts->push_back({"a bundle that is an archive", kBars, links, world.Save(), world.Archive()});
}

}  // namespace

std::vector<Layout> HostileLayouts(const World& world) {
    std::vector<Layout> layouts;
    AddLinksToOutside(world, &layouts);
    AddChains(&layouts);
    AddOtherKinds(&layouts);
    AddHarmless(world, &layouts);
    for (Layout& layout : layouts) {
        if (layout.save.empty()) layout.save = world.Save();
        if (layout.bundle.empty()) layout.bundle = world.Bundle();
    }
    return layouts;
}

}  // namespace kx::proof
