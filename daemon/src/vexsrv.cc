// The daemon's servant: construction, the repository's name, the signal
// handlers, and the operations that change the table of registrations.
#include "vexsrv.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "actdef.h"
#include "except.h"
#include "impldef.h"
#include "tbfstrm.h"
#include "vexbatch.h"
#include "vexsig.h"
#include "vextrust.h"
#include "zebglob.h"

using std::cout;
using std::endl;

VEXImpl* vex = nullptr;
int default_timeout = -1;

// ----------------------------------------------------------- free helpers

void childHandler(int) {
    // Runs in the signal handler; touches only the process table through
    // waitpid. Reaps at most one child per delivery, as signal() semantics
    // may merge several exits into one.
    // Several exits may arrive as one signal, so every ended child is
    // reaped and reported. errno is kept for the code we interrupted.
    const int saved = errno;
    pid_t pid;
    while ((pid = waitpid(-1, nullptr, WNOHANG)) > 0)
        if (vex) vex->record_child_exit(static_cast<unsigned long>(pid));
    signal(SIGCHLD, childHandler);
    errno = saved;
}

void signalHandler(int) {
    // Runs in the signal handler, which may have interrupted anything, even
    // malloc: the process ends with status 1 without running destructors or
    // exit handlers, which are not safe here. Nothing is lost: every change
    // is in the repository file already, and every message was flushed but
    // those a load holds in its batch, which are written out here.
    VEXOutputBatch::flushFromSignal();
    _exit(1);
}

int file_exists(const char* name) {
    struct stat st;
    return name && stat(name, &st) >= 0 ? 1 : 0;
}

TBfstream* open_file(const char* name) {
    std::unique_ptr<TBfstream> strm(new TBfstream(name, O_RDWR | O_CREAT));
    if (!*strm) {
        cout << "Activation daemon: Was not able to open "
             << "the implementation repository -" << name << endl;
        cout << "Check path name or permissions" << endl;
        cout << "Hint: Check environment variable "
             << "KELVANOR_IMPL_NAME, "
             << "KELVANOR_IMPL_PATH, "
             << "KELVANOR." << endl;
        exit(1);
    }
    return strm.release();
}

// --------------------------------------------------------------- servant

VEXImpl::VEXImpl(unsigned char verbose)
    : _sk_Activation::_sk_VEX(nullptr), _impl_table(16), _verbose(verbose) {
    _get_impl_name();
    _removeStaleTemps();
    if (file_exists(_impl_file)) {
        std::unique_ptr<TBfstream> strm(open_file(_impl_file));
        // Under -v a load prints some twenty lines per entry; they are
        // collected and written in large blocks, in their order among
        // everything else the load prints.
        std::unique_ptr<VEXOutputBatch> batch(_verbose ? new VEXOutputBatch(cout) : nullptr);
        _populateImplRep(*strm);
    }
    vex = this;
}

VEXImpl::~VEXImpl() {
    vex = nullptr;
    // The wrappers do not own the records; free them with the table.
    DSIterator outer(_impl_table);
    while (DSResource* e = outer.next()) {
        DSDictionary* inner = TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value);
        retireRecords(*inner);
    }
}

void VEXImpl::_get_impl_name() {
    const char* root = getenv("KELVANOR");
    std::string dir = root ? std::string(root) + "/impl_dir" : std::string("impl_dir");
    if (const char* path = getenv("KELVANOR_IMPL_PATH")) dir = path;
    const char* name = getenv("KELVANOR_IMPL_NAME");
    // Built in a string, so a long directory name cannot overrun a buffer.
    std::string file = dir + "/" + (name ? name : "impl_rep");
    _impl_file = file.c_str();
    _impl_path = dir.c_str();
    if (_verbose) cout << "VEX: Repository file name: " << file << endl;
}

DSDictionary* VEXImpl::findInterface(const char* interface_name) const {
    ZEBString key(interface_name);
    return TB_CAST(DSDictionary, _impl_table.atKey(key));
}

VEXActivationInfo* VEXImpl::findEntry(const char* interface_name,
                                      const char* object_name) const {
    DSDictionary* inner = findInterface(interface_name);
    if (!inner) return nullptr;
    ZEBString key(object_name);
    DSWrapper* w = TB_CAST(DSWrapper, inner->atKey(key));
    return w ? static_cast<VEXActivationInfo*>(w->value) : nullptr;
}

VEXActivationInfo* VEXImpl::lookupEntry(const char* interface_name, const char* object_name,
                                        DSDictionary** inner) const {
    DSDictionary* d = findInterface(interface_name);
    if (!d) throw Activation::NotRegistered();
    ZEBString key(object_name);
    DSWrapper* w = TB_CAST(DSWrapper, d->atKey(key));
    if (!w) throw Activation::NotRegistered();
    if (inner) *inner = d;
    return static_cast<VEXActivationInfo*>(w->value);
}

unsigned long VEXImpl::entryCount() const {
    unsigned long n = 0;
    DSIterator it(_impl_table);
    while (DSResource* e = it.next()) n += TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value)->size();
    return n;
}

void VEXImpl::retireRecords(DSDictionary& inner) {
    DSIterator it(inner);
    while (DSResource* e = it.next()) {
        DSWrapper* w = TB_CAST(DSWrapper, TB_CAST(DSAssoc, e)->value);
        if (w->value) retire(static_cast<VEXActivationInfo*>(w->value));
        w->value = nullptr;
    }
}

void VEXImpl::retire(VEXActivationInfo* info) {
    info->withdraw();
    _retired.emplace_back(info);
}

void VEXImpl::drop(VEXActivationInfo* info) {
    // A record that a lookup waits on must outlive the nested loop.
    if (info->waiting())
        retire(info);
    else
        delete info;
}

void VEXImpl::_addImpl(CORBA_CreationImplDef* impl) {
    if (!file_exists(impl->path)) throw Activation::InvalidPath();
    enter(std::unique_ptr<CORBA_CreationImplDef>(impl->_copy()));
}

void VEXImpl::enter(std::unique_ptr<CORBA_CreationImplDef> def) {
    ZEBString ikey(def->interface_name);
    DSDictionary* inner = TB_CAST(DSDictionary, _impl_table.atKey(ikey));
    if (!inner) {
        inner = new DSDictionary(16);
        _impl_table.addAssoc(*new ZEBString(ikey), *inner);
    }
    // One probe instead of a test and an insert: the names of a large
    // repository tend to share long prefixes, which makes their chains long.
    // A refused association takes its key and wrapper with it; the record
    // was never announced and goes too.
    std::unique_ptr<VEXActivationInfo> info(new VEXActivationInfo(def.release()));
    if (!inner->addAssoc(*new ZEBString(info->impl()->object_name), *new DSWrapper(info.get())))
        throw Activation::DuplicateEntry();
    VEXActivationInfo* entered = info.release();
    entered->_registerWithAgent();
    if (_verbose) {
        // The printing form ends every line with endl; held together, the
        // record goes out in one write when a load batches the output.
        VEXOutputBatch::Hold hold;
        cout << "VEX:: Added the following implementation:" << endl;
        cout << static_cast<const CORBA_CreationImplDef*>(entered->impl()) << endl;
    }
}

void VEXImpl::checkProgram(const char* path) const {
    // Departs from the older rule, under which any name that stat found was
    // taken, a directory too, and from anywhere on the host.
    if (!VEXTrust::isExecutableFile(path)) throw Activation::InvalidPath();
    if (!VEXTrust::inProgramDirs(path)) {
        if (_verbose)
            cout << "VEX:: Refused " << path << ": it is outside the program directories "
                 << VEXTrust::programDirs() << endl;
        throw Activation::InvalidPath();
    }
}

CORBA_Object* VEXImpl::reg_implementation(CORBA_CreationImplDef* impl) {
    VEXTrust::checkAdmin("reg_implementation", _verbose);
    VEXChildExitBlock exits;
    checkProgram(impl->path);
    if (findEntry(impl->interface_name, impl->object_name)) throw Activation::DuplicateEntry();
    RepoEdit edit;
    edit.add = impl;
    _updateRepository(edit);
    _addImpl(impl);
    // A reference by names: whoever uses it binds through the daemon, which
    // starts the server.
    return ZEBGlobalTable::makeObjRef(impl->interface_name, impl->object_name);
}

void VEXImpl::unreg_implementation(const char* interface_name, const char* object_name) {
    VEXTrust::checkAdmin("unreg_implementation", _verbose);
    VEXChildExitBlock exits;
    DSDictionary* inner = nullptr;
    VEXActivationInfo* info = lookupEntry(interface_name, object_name, &inner);
    RepoEdit edit;
    edit.skipInterface = interface_name;
    edit.skipObject = object_name;
    _updateRepository(edit);
    drop(info);  // leaves the directory agent; its processes run on
    inner->removeKey(ZEBString(object_name));
    if (inner->isEmpty()) _impl_table.removeKey(ZEBString(interface_name));
    if (_verbose) {
        cout << "VEX:: Unregistered the following implementation:" << endl;
        cout << "\tInterface name: " << interface_name << endl;
        cout << "\tObject name: " << object_name << endl;
    }
}

void VEXImpl::unreg_interface(const char* interface_name) {
    VEXTrust::checkAdmin("unreg_interface", _verbose);
    VEXChildExitBlock exits;
    DSDictionary* inner = findInterface(interface_name);
    if (!inner) throw Activation::NotRegistered();
    RepoEdit edit;
    edit.skipInterface = interface_name;
    _updateRepository(edit);
    DSIterator it(*inner);
    while (DSResource* e = it.next()) {
        DSWrapper* w = TB_CAST(DSWrapper, TB_CAST(DSAssoc, e)->value);
        drop(static_cast<VEXActivationInfo*>(w->value));
        w->value = nullptr;
    }
    _impl_table.removeKey(ZEBString(interface_name));
    if (_verbose) {
        cout << "VEX:: Unregistered the following interface:" << endl;
        cout << "\tInterface name: " << interface_name << endl;
    }
}

CORBA_CreationImplDef* VEXImpl::get_implementation(const char* interface_name,
                                                   const char* object_name) {
    VEXActivationInfo* info = lookupEntry(interface_name, object_name, nullptr);
    return info && info->impl() ? info->impl()->_copy() : nullptr;
}

void VEXImpl::change_implementation(CORBA_CreationImplDef* old_impl,
                                    CORBA_CreationImplDef* new_impl) {
    VEXTrust::checkAdmin("change_implementation", _verbose);
    VEXChildExitBlock exits;
    DSDictionary* inner = nullptr;
    VEXActivationInfo* info = lookupEntry(old_impl->interface_name, old_impl->object_name, &inner);
    // Only a running shared server blocks the change; a start in progress
    // and the processes of an unshared entry do not.
    if (info && info->isActive()) throw Activation::IsActive();
    // A change that registration will accept is written first, so that a
    // failed rewrite leaves the old entry in the table as well as the file.
    const char* path = new_impl->path;
    const bool samePair = std::strcmp(old_impl->interface_name, new_impl->interface_name) == 0 &&
                          std::strcmp(old_impl->object_name, new_impl->object_name) == 0;
    if (VEXTrust::isExecutableFile(path) && VEXTrust::inProgramDirs(path) &&
        (samePair || !findEntry(new_impl->interface_name, new_impl->object_name))) {
        RepoEdit edit;
        edit.skipInterface = old_impl->interface_name;
        edit.skipObject = old_impl->object_name;
        edit.add = new_impl;
        _updateRepository(edit);
    }
    if (info) retire(info);
    inner->removeKey(ZEBString(old_impl->object_name));
    if (inner->isEmpty()) _impl_table.removeKey(ZEBString(old_impl->interface_name));
    // Through the virtual table, so that a derived servant's registration
    // runs; the reference it returns is not needed.
    CORBA::release(reg_implementation(new_impl));
}

void VEXImpl::unregister_all() {
    VEXTrust::checkAdmin("unregister_all", _verbose);
    VEXChildExitBlock exits;
    RepoEdit edit;
    edit.skipAll = true;
    _updateRepository(edit);
    DSIterator it(_impl_table);
    while (DSResource* e = it.next())
        retireRecords(*TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value));
    _impl_table.removeAll();
}
