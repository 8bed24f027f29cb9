// Activation records: ownership of the definition and of the statuses,
// the status list, the stream form.
#include "actdef.h"

#include <cstring>
#include <memory>

#include "dispatch.h"
#include "dsname.h"
#include "except.h"
#include "impldef.h"
#include "tbiostrm.h"
#include "zebboa.h"
#include "zebglob.h"

VEXActivationInfo::VEXActivationInfo(CORBA_CreationImplDef* impl)
    : _impl(impl), _status_list(nullptr), _status_count(0), _status_capacity(0),
      _pending(nullptr), _waiting(false), _wakeup_armed(false), _registered(false),
      _withdrawn(false) {}

VEXActivationInfo::~VEXActivationInfo() {
    if (_wakeup_armed) dpDispatcher::instance()->stopTimer(this);
    if (_registered) _unregisterFromAgent();
    for (unsigned long i = 0; i < _status_count; ++i) freeStatus(_status_list[i]);
    delete[] _status_list;
    freeStatus(_pending);
    CORBA::release(_impl);
}

void VEXActivationInfo::freeStatus(Activation::ObjectStatus* status) {
    // objRef, a holder, releases the server's reference with the status.
    delete status;
}

void VEXActivationInfo::impl(CORBA_CreationImplDef* p) {
    if (p == _impl) return;
    CORBA::release(_impl);
    _impl = p;
}

void VEXActivationInfo::pending(Activation::ObjectStatus* status) {
    if (status == _pending) return;
    freeStatus(_pending);
    _pending = status;
}

void VEXActivationInfo::_registerWithAgent() {
    _registered = true;
    // The pair can be had from this daemon: service type 5 rows with the
    // daemon's own address. A record made before the adapter exists (the
    // repository's tests) has nobody to tell.
    ZEBBOA* boa = ZEBGlobalTable::_boa;
    if (boa && _impl)
        boa->_registerImpl(_impl->interface_name, _impl->object_name, DS_SERVICE_ACTIVATABLE,
                           nullptr, nullptr);
}

void VEXActivationInfo::_unregisterFromAgent() {
    _registered = false;
    ZEBBOA* boa = ZEBGlobalTable::_boa;
    if (!boa || !_impl) return;
    // Called from the destructor: an agent that cannot be reached keeps a
    // stale row, which does no harm, rather than ending the daemon.
    try {
        boa->_unregisterImpl(_impl->interface_name, _impl->object_name, DS_SERVICE_ACTIVATABLE,
                             nullptr, nullptr);
    } catch (const CORBA_Exception&) {
    }
}

void VEXActivationInfo::_addToList(Activation::ObjectStatus* status) {
    if (_status_count == _status_capacity) {
        unsigned long grown = _status_capacity ? 2 * _status_capacity : 8;
        std::unique_ptr<Activation::ObjectStatus*[]> list(new Activation::ObjectStatus*[grown]);
        if (_status_count)
            std::memcpy(list.get(), _status_list, _status_count * sizeof(*_status_list));
        delete[] _status_list;
        _status_list = list.release();
        _status_capacity = grown;
    }
    _status_list[_status_count++] = status;
}

bool VEXActivationInfo::startedPid(unsigned long pid) const {
    if (_pending && _pending->process_id == pid) return true;
    for (unsigned long i = 0; i < _status_count; ++i)
        if (_status_list[i]->process_id == pid) return true;
    return false;
}

void VEXActivationInfo::_removeFromList(unsigned long pid) {
    for (unsigned long i = 0; i < _status_count; ++i) {
        if (_status_list[i]->process_id != pid) continue;
        freeStatus(_status_list[i]);
        std::memmove(_status_list + i, _status_list + i + 1,
                     (_status_count - i - 1) * sizeof(*_status_list));
        --_status_count;
        return;
    }
}


TBostream& operator<<(TBostream& strm, const VEXActivationInfo& info) {
    if (!info.impl()) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << static_cast<const CORBA_CreationImplDef*>(info.impl());
}

TBistream& operator>>(TBistream& strm, VEXActivationInfo*& p) {
    std::unique_ptr<VEXActivationInfo> info(new VEXActivationInfo);
    CORBA_CreationImplDef* impl = nullptr;
    strm >> impl;
    info->impl(impl);
    p = info.release();
    return strm;
}
