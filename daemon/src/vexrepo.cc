// Loading and rewriting the repository file. A rewrite never touches the
// file in place: the whole table goes to a new file in the same directory,
// which is flushed to disk and then renamed over the old one, so that a
// crash at any moment leaves either the old file or the new one.
#include "vexsrv.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// Temporary files are named after the repository, "<file>.tmp-" and six
// letters or digits: a pattern nothing else in the directory is likely to
// have, so that a start may remove what a crash left.
const char kTempInfix[] = ".tmp-";
constexpr size_t kTempRandom = 6;

bool isTempName(const std::string& name, const std::string& base) {
    const std::string prefix = base + kTempInfix;
    if (name.size() != prefix.size() + kTempRandom || name.compare(0, prefix.size(), prefix) != 0)
        return false;
    for (size_t i = prefix.size(); i < name.size(); ++i)
        if (!isalnum(static_cast<unsigned char>(name[i]))) return false;
    return true;
}

}  // namespace

// A temporary file that is removed unless commit() is called. Creation is
// exclusive, so two daemons on one directory never share a name.
class VEXImpl::TempFile {
public:
    explicit TempFile(const std::string& file)
        : _name(file + kTempInfix + std::string(kTempRandom, 'X')) {
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

namespace {

// Makes a rename in dir durable. The new name is in place for every reader
// already, so a failure here is not fatal: at worst a power loss brings back
// the previous file, which is whole as well.
void syncDirectory(const char* dir) {
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    ::close(fd);
}

// Copies from to a new file to (mode 0600, made durable); 0 or an errno.
int copyFile(const char* from, const std::string& to) {
    int in = open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0) return errno;
    int out = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        int err = errno;
        ::close(in);
        return err;
    }
    int err = 0;
    char buf[65536];
    for (;;) {
        ssize_t n = read(in, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n < 0) err = errno;
            break;
        }
        for (ssize_t done = 0; done < n && !err;) {
            ssize_t k = write(out, buf + done, static_cast<size_t>(n - done));
            if (k < 0 && errno != EINTR) err = errno;
            if (k > 0) done += k;
        }
        if (err) break;
    }
    if (!err && fsync(out) != 0) err = errno;
    ::close(in);
    if (::close(out) != 0 && !err) err = errno;
    if (err) unlink(to.c_str());
    return err;
}

void invalidRegistration(const CORBA_CreationImplDef* impl) {
    cout << "VEX:: Invalid registration. File " << (impl->path.in() ? impl->path.in() : "")
         << " does not exist" << endl;
    cout << "The implementation will not be added "
         << "to the list of registrations" << endl;
}

}  // namespace

void VEXImpl::_removeStaleTemps() {
    const std::string file(_impl_file);
    const std::string base = file.substr(file.rfind('/') + 1);
    DIR* d = opendir(_impl_path);
    if (!d) return;
    // Only regular files of our own pattern: a crash inside a rewrite leaves
    // one behind, and each holds a whole copy of the table.
    while (dirent* e = readdir(d)) {
        if (!isTempName(e->d_name, base)) continue;
        const std::string path = std::string(_impl_path) + "/" + e->d_name;
        struct stat st;
        if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        if (unlink(path.c_str()) == 0 && _verbose)
            cout << "VEX: Removed " << path << ", left by an earlier run" << endl;
    }
    closedir(d);
}

void VEXImpl::_keepDamagedCopy() {
    // A later rewrite holds only the entries that were read; the bytes that
    // could not be read stay in this copy for the administrator.
    char stamp[32];
    time_t now = time(nullptr);
    struct tm tm;
    strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", localtime_r(&now, &tm));
    std::string copy = std::string(_impl_file) + ".damaged-" + stamp;
    int err = copyFile(_impl_file, copy);
    for (int i = 1; err == EEXIST && i < 100; ++i)
        err = copyFile(_impl_file, copy = std::string(_impl_file) + ".damaged-" + stamp + "-" +
                                            std::to_string(i));
    if (err != 0) {
        errno = err;
        perror("VEX: copy of the damaged repository");
        cout << "VEX: Could not keep a copy of the damaged repository " << _impl_file.string()
             << "; it is left as it is" << endl;
        exit(1);
    }
    cout << "VEX: Repository file " << _impl_file.string() << " is damaged; a copy is kept as "
         << copy << endl;
}

void VEXImpl::_populateImplRep(TBfstream& strm) {
    // Departs from the older load, which went on from a damaged file as if
    // it were whole: the file is kept aside before anything rewrites it.
    bool damaged = false;
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
            damaged = true;
            break;
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
    // A short file reads made-up zeroes; a whole one has no byte left after
    // its last entry. An empty file is an empty repository: nothing to keep.
    struct stat st;
    if (fstat(strm.descriptor(), &st) == 0 && st.st_size == 0) return;
    if (!damaged) damaged = strm.madeUpBytes() != 0;
    if (!damaged) {
        strm.get();
        damaged = strm.madeUpBytes() == 0;
    }
    if (damaged) _keepDamagedCopy();
}

bool VEXImpl::RepoEdit::skips(const char* interface_name, const char* object_name) const {
    if (skipAll) return true;
    if (!skipInterface || std::strcmp(skipInterface, interface_name) != 0) return false;
    return !skipObject || std::strcmp(skipObject, object_name) == 0;
}

void VEXImpl::_updateRepository(const RepoEdit& edit) {
    // Departs from the older rewrite, which ended the daemon when it failed:
    // the file is now written as the table will be after the change and
    // before the change is made, so a failure refuses the operation and
    // leaves the table and the file as they were.
    TempFile temp(_impl_file.string());
    if (!temp.ok()) rewriteFailed(errno, temp);

    // Two walks: the count stands first in the file.
    unsigned long count = edit.add ? 1 : 0;
    for (int pass = 0; pass < 2; ++pass) {
        TBfstream* out = nullptr;
        std::unique_ptr<TBfstream> strm;
        if (pass == 1) {
            strm.reset(out = new TBfstream(temp.fd()));
            *out << count;
        }
        DSIterator outer(_impl_table);
        while (DSResource* e = outer.next()) {
            const char* iface = TB_CAST(ZEBString, TB_CAST(DSAssoc, e)->key)->string();
            DSIterator it(*TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value));
            while (DSResource* f = it.next()) {
                DSAssoc* a = TB_CAST(DSAssoc, f);
                if (edit.skips(iface, TB_CAST(ZEBString, a->key)->string())) continue;
                if (!out) {
                    ++count;
                    continue;
                }
                const VEXActivationInfo* info =
                    static_cast<const VEXActivationInfo*>(TB_CAST(DSWrapper, a->value)->value);
                // A record without a definition throws CORBA_BAD_PARAM; the
                // temporary file then goes and the repository stays.
                if (!info) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
                *out << *info;
            }
        }
        if (!out) continue;
        if (edit.add) *out << edit.add;
        // A failed write (a full disk) must not put a short file in place.
        errno = 0;
        if (!out->flush()) rewriteFailed(errno, temp);
    }
    if (!temp.sync()) rewriteFailed(errno, temp);
    if (rename(temp.name(), _impl_file) < 0) {
        const int err = errno;
        perror("rename:");
        cout << "VEX:: Rename of backup file failed" << endl;
        cout << "Repository file name: " << _impl_file.string() << endl;
        rewriteFailed(err, temp);
    }
    temp.commit();
    syncDirectory(_impl_path);
}

void VEXImpl::rewriteFailed(int err, TempFile& temp) const {
    temp.discard();
    cout << "VEX: Could not back up repository" << endl;
    cout << "Hint: Check if you have write permission in " << _impl_path.string() << endl;
    throw CORBA_PERSIST_STORE(static_cast<CORBA::ULong>(err ? err : EIO), CORBA::COMPLETED_NO);
}
