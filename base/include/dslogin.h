// Who a process is, as it tells the directory agent: DSUserInfo, a user of
// the directory, and DSLogin, the argument of a login request.
#ifndef KELVANOR_DSLOGIN_H
#define KELVANOR_DSLOGIN_H

#include <kelvanor/dsaddr.h>
#include <kelvanor/tbstring.h>

class DSUserInfo : public TBTransObject {
    TB_DECLARE_CLASS(DSUserInfo);

public:
    // The login name, this machine with port 0, and this process.
    DSUserInfo();
    // User name, address as member objects, then the process id.
    explicit DSUserInfo(TBistream& strm);

    const char* userName() const { return _userName.string(); }
    const DSAddr& address() const { return _address; }
    long pid() const { return _pid; }

    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    TBString _userName;
    DSAddr _address;
    long _pid;
};

class DSLogin : public DSResource {
    TB_DECLARE_CLASS(DSLogin);

public:
    // This machine's name, the two names given (null: empty), the login
    // name, this process, machine type 2, verify port 0.
    DSLogin(const char* loginName = nullptr, const char* thirdName = nullptr);
    explicit DSLogin(TBistream& strm);

    const char* hostName() const { return _hostName.string(); }
    const char* loginName() const { return _loginName.string(); }
    const char* thirdName() const { return _thirdName.string(); }
    const char* userName() const { return _userName.string(); }
    long pid() const { return _pid; }
    int machineType() const { return _machine; }
    int verifyPort() const { return _verifyPort; }
    static int machine() { return 2; }

    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    TBString _hostName;
    TBString _loginName;
    TBString _thirdName;
    TBString _userName;
    long _pid;
    int _machine;
    int _verifyPort;
};

#endif
