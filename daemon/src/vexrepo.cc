// Loading and rewriting the repository file. A rewrite never touches the
// file in place: the whole table goes to a new file in the same directory,
// which is flushed to disk and then renamed over the old one, so that a
// crash at any moment leaves either the old file or the new one.
#include "vexsrv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <unordered_set>

#include "actdef.h"
#include "except.h"
#include "impldef.h"
#include "tbfstrm.h"

using std::cout;
using std::endl;

namespace {

// A temporary file that is removed unless commit() is called. Creation is
// exclusive, so two daemons on one directory never share a name.
class TempFile {
public:
    explicit TempFile(const char* dir) : _name(std::string(dir) + "/vexXXXXXX") {
        // mkostemp makes the file private (0600), and it stays so: the
        // repository holds the environments of the servers. This departs
        // from the older mode, which followed the umask.
        _fd = mkostemp(&_name[0], O_CLOEXEC);
    }
    ~TempFile() {
        if (_fd >= 0) ::close(_fd);
        if (!_committed && _fd >= 0) unlink(_name.c_str());
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    bool ok() const { return _fd >= 0; }
    int fd() const { return _fd; }
    const char* name() const { return _name.c_str(); }
    // Closes the descriptor; true if the bytes reached the disk.
    bool sync() {
        bool synced = fsync(_fd) == 0;
        bool closed = ::close(_fd) == 0;
        _fd = -1;
        return synced && closed;
    }
    // From now on the file stays.
    void commit() { _committed = true; }
    // Removes the file (and keeps it from being removed twice).
    void discard() {
        if (_fd >= 0) ::close(_fd);
        _fd = -1;
        unlink(_name.c_str());
        _committed = true;
    }

private:
    std::string _name;
    int _fd;
    bool _committed = false;
};

[[noreturn]] void backupFailed(const char* dir) {
    cout << "VEX: Could not back up repository" << endl;
    cout << "Hint: Check if you have write permission in " << dir << endl;
    exit(1);
}

// Makes a rename in dir durable. The new name is in place for every reader
// already, so a failure here is not fatal: at worst a power loss brings back
// the previous file, which is whole as well.
void syncDirectory(const char* dir) {
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    ::close(fd);
}

void invalidRegistration(const CORBA_CreationImplDef* impl) {
    cout << "VEX:: Invalid registration. File " << (impl->path.in() ? impl->path.in() : "")
         << " does not exist" << endl;
    cout << "The implementation will not be added "
         << "to the list of registrations" << endl;
}

}  // namespace

void VEXImpl::_populateImplRep(TBfstream& strm) {
    long count = 0;
    strm >> count;
    // Most registrations of a repository share a few programs: each path is
    // looked up once per load, not once per entry.
    std::unordered_set<std::string> present;
    for (long i = 0; i < count; ++i) {
        CORBA_CreationImplDef* impl = nullptr;
        try {
            strm >> impl;
        } catch (const CORBA_MARSHAL&) {
            // Only a length or count far beyond the file's size gets here
            // (a truncated file reads as zeroes and goes on below): what
            // follows cannot be read as entries.
            cout << "VEX:: Repository file is damaged; the remaining entries are ignored"
                 << endl;
            return;
        }
        // The definition read is the one the table keeps: no copy.
        std::unique_ptr<CORBA_CreationImplDef> owned(impl);
        const char* path = impl->path.in() ? impl->path.in() : "";
        if (!present.count(path)) {
            if (!file_exists(path)) {
                invalidRegistration(impl);
                continue;
            }
            present.insert(path);
        }
        try {
            enter(std::move(owned));
        } catch (const Activation::DuplicateEntry&) {
            // The first entry of a pair wins; the next rewrite drops this one.
        }
    }
}

void VEXImpl::_updateRepository() {
    TempFile temp(_impl_path);
    if (!temp.ok()) backupFailed(_impl_path);

    unsigned long count = entryCount();
    {
        TBfstream strm(temp.fd());
        strm << count;
        DSIterator outer(_impl_table);
        while (DSResource* e = outer.next()) {
            DSIterator it(*TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value));
            while (DSResource* f = it.next()) {
                DSWrapper* w = TB_CAST(DSWrapper, TB_CAST(DSAssoc, f)->value);
                const VEXActivationInfo* info = static_cast<const VEXActivationInfo*>(w->value);
                // A record without a definition throws CORBA_BAD_PARAM; the
                // temporary file then goes and the repository stays.
                if (!info) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
                strm << *info;
            }
        }
        // A failed write (a full disk) must not put a short file in place:
        // the old file stays and the daemon stops.
        if (!strm.flush()) {
            temp.discard();
            backupFailed(_impl_path);
        }
    }
    if (!temp.sync()) {
        temp.discard();
        backupFailed(_impl_path);
    }
    temp.commit();
    if (rename(temp.name(), _impl_file) < 0) {
        perror("rename:");
        cout << "VEX:: Rename of backup file failed" << endl;
        cout << "Repository file name: " << _impl_file.string() << endl;
        // The temporary file stays for the administrator to look at.
        exit(1);
    }
    syncDirectory(_impl_path);
}
