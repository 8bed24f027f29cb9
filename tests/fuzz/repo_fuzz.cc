// The daemon's repository file, loaded by the daemon's own start-up code
// from a file in a private directory. Entries whose program exists are
// entered in the table; the table is freed with the servant.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "common.h"
#include "vexsrv.h"

namespace {

std::string dir;
std::string file;

// Every file the load left: the repository and the copies a damaged one
// gets. Kept, the copies of one second run out of names and end the load.
void emptyDir() {
    if (DIR* d = ::opendir(dir.c_str())) {
        while (dirent* e = ::readdir(d))
            if (e->d_name[0] != '.') ::unlink((dir + "/" + e->d_name).c_str());
        ::closedir(d);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kfuzz::init();
    char templ[] = "/tmp/kelvanor-repo-fuzz-XXXXXX";
    if (!mkdtemp(templ)) std::abort();
    dir = templ;
    file = dir + "/impl_rep";
    setenv("KELVANOR_IMPL_PATH", dir.c_str(), 1);
    setenv("KELVANOR_IMPL_NAME", "impl_rep", 1);
    std::atexit([] { emptyDir(), ::rmdir(dir.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) std::abort();
    size_t done = 0;
    while (done < size) {
        ssize_t n = ::write(fd, data + done, size - done);
        if (n <= 0) std::abort();
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    {
        VEXImpl repo(0);
    }
    emptyDir();
    return 0;
}
