// The records by which a process introduces itself to the agent.
#include "dslogin.h"

#include <unistd.h>

#include <cstdio>

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSUserInfo, "DSUserInfo");
TB_DEFINE_CLASS(DSLogin, "DSLogin", DSResource::desc());

namespace {

// getlogin has no answer without a controlling terminal; that is no reason
// to refuse a login.
const char* loginOrEmpty() {
    const char* name = getlogin();
    return name ? name : "";
}

TBString thisHostName() {
    char name[101];
    if (gethostname(name, 100) < 0) {
        std::perror("DSLogin::gethostname:");
        return TBString("Unknown");
    }
    name[100] = '\0';
    return TBString(name);
}

}  // namespace

DSUserInfo::DSUserInfo() : _userName(loginOrEmpty()), _address(0), _pid(getpid()) {}

// Not a TBObject: it takes its number itself, before its members do, as the
// writer numbered it.
DSUserInfo::DSUserInfo(TBistream& strm) : _userName((strm.addToTbl(*this), strm)), _address(strm), _pid(0) {
    strm >> _pid;
}

void DSUserInfo::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_userName) << static_cast<const TBTransObject&>(_address)
         << _pid;
}

void DSUserInfo::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: DSUserInfo\n" << "User Name: " << userName();
    _address.prettyPrint(strm);
    strm << "Process id:" << _pid;
    endl(strm);
}

DSLogin::DSLogin(const char* loginName, const char* thirdName)
    : _hostName(thisHostName()), _loginName(loginName), _thirdName(thirdName),
      _userName(loginOrEmpty()), _pid(getpid()), _machine(machine()), _verifyPort(0) {}

DSLogin::DSLogin(TBistream& strm)
    : DSResource(strm), _hostName(strm), _loginName(strm), _thirdName(strm), _userName(strm),
      _pid(0), _machine(0), _verifyPort(0) {
    strm >> _pid >> _machine >> _verifyPort;
}

void DSLogin::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_hostName) << static_cast<const TBTransObject&>(_loginName)
         << static_cast<const TBTransObject&>(_thirdName)
         << static_cast<const TBTransObject&>(_userName);
    strm << _pid << _machine << _verifyPort;
}

void DSLogin::prettyPrint(TBostream& strm) const {
    strm << "\nHost Name: " << hostName() << "\nLogin Name: " << loginName() << "\n"
         << thirdName() << "\nUser Name: " << userName() << "\nProcess id:" << _pid
         << "\nMachine Type: " << _machine << "\nVerify Port: " << _verifyPort;
    endl(strm);
}
