// The daemon's servant and its implementation repository: a two-level table
// (interface name -> object name -> activation record) in memory, and one
// binary file that is rewritten as a whole after every change, through a
// temporary file in the same directory and a rename.
#ifndef KELVANOR_VEXSRV_H
#define KELVANOR_VEXSRV_H

#include <memory>
#include <vector>

#include <kelvanor/Activation.h>
#include <kelvanor/dsdict.h>
#include <kelvanor/zebdefer.h>
#include <kelvanor/zebstring.h>

class CORBA_CreationImplDef;
class CORBA_Object;
class TBfstream;
class VEXActivationInfo;

// File layout of the repository, every integer 4 bytes in the writer's byte
// order, unaligned, strings as a 4-byte length and the bytes:
//   count                      number of entries
//   count times:
//     interface name, object name   strings
//     reference data                count, bytes
//     path                          string
//     activation policy             0..2
//     arguments, environment        count, then that many strings each
// Entries stand in table order, which depends on hashing and history.
// The servant of the daemon's one object: a local Activation::VEX object of
// no name, so that it has the default name of its interface.
class VEXImpl : public _sk_Activation::_sk_VEX {
public:
    // Finds the repository's name, loads the file if there is one, and only
    // then becomes the servant that childHandler reaches.
    explicit VEXImpl(unsigned char verbose);
    ~VEXImpl() override;
    VEXImpl(const VEXImpl&) = delete;
    VEXImpl& operator=(const VEXImpl&) = delete;

    // The operations of the daemon's interface that keep the repository.
    // Each change is in the file before it is made in memory; a rewrite
    // that fails refuses the operation with CORBA_PERSIST_STORE and changes
    // nothing. Each throws
    // CORBA_NO_PERMISSION to a peer off loopback unless -a was given.

    // Registers impl (copied) and rewrites the file. Throws
    // Activation::InvalidPath if impl->path is no regular executable file
    // on this host or lies outside the -x directories,
    // Activation::DuplicateEntry if the pair is registered. Returns a new
    // reference to the object, for the caller to release; null until the
    // broker's object references exist.
    CORBA_Object* reg_implementation(CORBA_CreationImplDef* impl) override;
    // Throws Activation::NotRegistered. Forgets the entry's processes
    // without stopping them.
    void unreg_implementation(const char* interface_name, const char* object_name) override;
    // Removes every object of the interface. Throws Activation::NotRegistered.
    void unreg_interface(const char* interface_name) override;
    // A deep copy owned by the caller (null if the entry holds none).
    // Throws Activation::NotRegistered.
    CORBA_CreationImplDef* get_implementation(const char* interface_name,
                                              const char* object_name) override;
    // Finds the entry by old_impl's two names only, drops it, and registers
    // new_impl. Throws Activation::NotRegistered, Activation::IsActive (its
    // shared server runs), and what reg_implementation throws; in that last
    // case the old entry is gone from memory while the file still has it.
    void change_implementation(CORBA_CreationImplDef* old_impl,
                               CORBA_CreationImplDef* new_impl) override;
    // Empties the table and the file.
    void unregister_all() override;

    // Status queries: deep copies owned by the caller. get_status and
    // get_status_interface throw Activation::NotRegistered.
    Activation::ImplementationStatus* get_status(const char* interface_name,
                                                 const char* object_name) override;
    Activation::ImplStatusList* get_status_interface(const char* interface_name) override;
    Activation::ImplStatusList* get_status_all() override;
    // Lookups: a reference to a living server, started if need be (timeout
    // in seconds per attempt, -1 for none). By interface, a running shared
    // server is preferred. Throw Activation::NotRegistered, Busy,
    // NotResponding.
    CORBA_Object* lookup_interface(const char* interface_name, CORBA::Long timeout) override;
    CORBA_Object* lookup_implementation(const char* interface_name, const char* object_name,
                                        CORBA::Long timeout) override;
    // The report of a server for (interface_name, obj's name): it becomes
    // the running server of the entry. Returns a copy of the definition.
    // Throws Activation::NotRegistered.
    CORBA_CreationImplDef* boa_activate_obj(CORBA_Object* obj, const char* interface_name,
                                            CORBA::Long pid) override;
    // Process pid has ended: every entry forgets it. Called from the
    // child-exit signal handler.
    void record_child_exit(unsigned long pid);

    // Directory and file name from KELVANOR_IMPL_PATH, KELVANOR and
    // KELVANOR_IMPL_NAME; prints the file name under -v.
    void _get_impl_name();
    // Enters a copy of impl in memory only. Throws Activation::InvalidPath,
    // Activation::DuplicateEntry.
    void _addImpl(CORBA_CreationImplDef* impl);
    // Loads the entries of strm. Entries whose program is gone are reported
    // and skipped, later duplicates dropped in silence. A file that ends
    // early or has bytes after its last entry is kept aside first.
    void _populateImplRep(TBfstream& strm);
    // Removes the temporary files of this repository that a crash left in
    // its directory (named "<file>.tmp-" and six letters or digits); under
    // -v a line each.
    void _removeStaleTemps();
    // Copies the repository to "<file>.damaged-<YYYYmmdd-HHMMSS>" beside it
    // and says so; exit(1) if the copy cannot be made, since the next
    // rewrite would lose what the load could not read.
    void _keepDamagedCopy();
    // A change about to be made to the table, as a rewrite sees it: the
    // entries it drops (every one, one interface, or one pair) and the one
    // it adds (not owned).
    struct RepoEdit {
        bool skipAll = false;
        const char* skipInterface = nullptr;
        const char* skipObject = nullptr;  // null: every object of skipInterface
        const CORBA_CreationImplDef* add = nullptr;
        bool skips(const char* interface_name, const char* object_name) const;
    };
    // Writes the table as edit will leave it to a temporary file, makes it
    // durable and renames it over the repository; the caller then makes the
    // change in memory. On failure (no descriptor, a full disk, an I/O
    // error) it prints why and throws CORBA_PERSIST_STORE (minor errno,
    // completed NO): the old file stays whole and no temporary file is left.
    void _updateRepository(const RepoEdit& edit);

    // The record of a pair, or null.
    VEXActivationInfo* findEntry(const char* interface_name, const char* object_name) const;
    // Inner dictionary of an interface (object name -> DSWrapper), or null.
    DSDictionary* findInterface(const char* interface_name) const;
    // A program that may be registered: a regular executable file, within
    // the -x directories if any were given. Throws Activation::InvalidPath.
    void checkProgram(const char* path) const;
    // Number of registered pairs.
    unsigned long entryCount() const;

    const DSDictionary& implTable() const { return _impl_table; }
    const char* implPath() const { return _impl_path; }
    const char* implFile() const { return _impl_file; }
    bool verbose() const { return _verbose != 0; }

private:
    class TempFile;
    [[noreturn]] void rewriteFailed(int err, TempFile& temp) const;
    // Enters the record of def, which it adopts; the path has been checked.
    // Throws Activation::DuplicateEntry (def is freed then).
    void enter(std::unique_ptr<CORBA_CreationImplDef> def);
    // Entry of a pair, or Activation::NotRegistered.
    VEXActivationInfo* lookupEntry(const char* interface_name, const char* object_name,
                                   DSDictionary** inner) const;
    // Moves every record of inner to _retired.
    void retireRecords(DSDictionary& inner);
    // Keeps a record that left the table, telling a waiting lookup.
    void retire(VEXActivationInfo* info);
    // Deletes a record that left the table, or retires it while a lookup
    // waits on it.
    void drop(VEXActivationInfo* info);

    DSDictionary _impl_table;  // ZEBString -> DSDictionary(ZEBString -> DSWrapper)
    unsigned char _verbose;
    ZEBString _impl_path;      // directory of the file; temporary files go here
    ZEBString _impl_file;      // full name of the file
    // Records that change_implementation and unregister_all take out of the
    // table. They are deliberately not destroyed then: they stay announced
    // to the directory agent, and no child exit reaches them any more.
    // Holding them here only frees them with the servant.
    std::vector<std::unique_ptr<VEXActivationInfo>> _retired;
};

// Requests and LocateRequests that reach the daemon with the persistent key
// of a registered pair (references that "vexctl ior" makes): forwarded to a
// living server of the pair, started if need be. Unknown pairs are left to
// the adapter (OBJECT_NOT_EXIST).
class VEXKeyForwarder : public ZEBKeyForwarder {
public:
    explicit VEXKeyForwarder(VEXImpl& vex) : _vex(vex) {}
    bool forward(const char* interface_name, const char* object_name,
                 std::unique_ptr<ZEBDeferredReply>& reply) override;

private:
    VEXImpl& _vex;
};

// The one servant, for childHandler: set at the end of the constructor,
// cleared first in the destructor.
extern VEXImpl* vex;
// Set by -t: the limit in seconds of a lookup that gives none (-1), and of
// a request for a pair's key; -1 (the default) for none.
extern int default_timeout;

// Child-exit signal handler: reaps one child and installs itself again.
void childHandler(int sig);
// Termination signal handler: ends the process with status 1 at once.
// Every change is in the file already.
void signalHandler(int sig);
// Opens the repository for reading and writing, or prints the hint text and
// ends the process with status 1. The caller owns the stream.
TBfstream* open_file(const char* name);
// 1 if stat succeeds on name, else 0 (also for null).
int file_exists(const char* name);

#endif
