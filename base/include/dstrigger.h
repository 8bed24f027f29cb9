// Triggers: a DSTriggerHandler is told when a provider of a name appears;
// DSTrigWrapper lets the session keep handlers in a DSSet.
#ifndef KELVANOR_DSTRIGGER_H
#define KELVANOR_DSTRIGGER_H

#include <kelvanor/tbresrc.h>

class DSProvider;

class DSTriggerHandler {
public:
    virtual ~DSTriggerHandler();
    // A provider of the name appeared. The provider belongs to the caller
    // and lives for the call only. A trigger fires once: to hear of the
    // next one, call DSUser::trigger again.
    virtual void serviceAvailable(DSProvider* provider) = 0;
};

// Never travels: write and prettyPrint do nothing.
class DSTrigWrapper : public DSResource {
    TB_DECLARE_CLASS(DSTrigWrapper);

public:
    explicit DSTrigWrapper(DSTriggerHandler* handler) : _handler(handler) {}
    explicit DSTrigWrapper(TBistream& strm) : DSResource(strm), _handler(nullptr) {}

    DSTriggerHandler* handler() const { return _handler; }

    unsigned hash() const override;
    // The sign of the handlers' address difference: equal only for the same
    // handler.
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    DSTriggerHandler* _handler;  // not owned
};

#endif
