// Directories, by the names and paths that scripts and the module use.
#include "Files/Support/Support_File.h"

#include "Files/IO/LoadSave_Area.h"

#include <optional>
#include <string>

int ForceDirectories(const char* path) {
    if (std::optional<std::string> place = kx::SaveArea().Place(path)) {
        return kx::SaveArea().MakeDirectories(*place) == 0;
    }
    std::optional<std::string> shipped = kx::BundleArea().Place(path);
    return shipped && kx::BundleArea().HasDirectory(*shipped);
}
