// A save that is watched.
#include "proof/Crash_Save.h"

#include <sys/syscall.h>

namespace kx::proof {

End Save(const Scenario& scenario, const Setting& setting, const std::filesystem::path& folder,
         const std::function<Next(const Stop&)>& atStop) {
    return RunTraced(
        [&](Marker& marker) {
            Host host(folder, setting);
            if (!host.Works()) return false;
            if (scenario.warmUp) scenario.warmUp();
            marker.Begin();
            if (!scenario.save()) return false;
            marker.Report();
            return true;
        },
        atStop);
}

bool ChangesNames(long call) {
    return call == SYS_linkat || call == SYS_renameat2 || call == SYS_unlinkat || call == SYS_mkdirat;
}

bool ChangesFiles(long call) {
    bool opens = call == SYS_openat || call == SYS_openat2;  // may make one
    bool syncs = call == SYS_fsync || call == SYS_fdatasync;
    bool attributes = call == SYS_fchmod || call == SYS_utimensat;
    return ChangesNames(call) || opens || syncs || attributes || call == SYS_write || call == SYS_close;
}

std::string Text(const Stop& stop) {
    return std::to_string(stop.number) + " (system call " + std::to_string(stop.call) +
           (stop.reported ? ", reported)" : ")");
}

}  // namespace kx::proof
