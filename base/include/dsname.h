// DSName: a name in the directory of the agent, with the kind of service it
// stands for and an optional argument object.
#ifndef KELVANOR_DSNAME_H
#define KELVANOR_DSNAME_H

#include <kelvanor/tbresrc.h>
#include <kelvanor/tbstring.h>

// Kind of the argument of a name. Every name the broker makes uses 1; other
// values may come from an agent and are kept as they are.
enum DSArgType : int { DS_ARG_DEFAULT = 1 };

// What a name stands for. The agent gives the types their meaning; these are
// the ones the broker uses.
enum DSServiceType : int {
    DS_SERVICE_NAME = 2,                    // only identifies
    DS_SERVICE_OBJECT = 4,                  // a running object
    DS_SERVICE_ACTIVATABLE = 5,             // an object the daemon can start
    DS_SERVICE_OBJECT_INTERFACE = 6,        // interface row of type 4
    DS_SERVICE_ACTIVATABLE_INTERFACE = 7    // interface row of type 5
};

class DSName : public DSResource {
    TB_DECLARE_CLASS(DSName);

public:
    // argument: may be null; the name takes a reference to it.
    DSName(const char* name, DSArgType argType, DSServiceType serviceType,
           DSResource* argument);
    // The name as a member TBString, the two types as ints, the argument as
    // a tagged object (null allowed).
    explicit DSName(TBistream& strm);
    // Copies share the argument, each holding a reference.
    DSName(const DSName& other);
    DSName& operator=(const DSName& other);
    ~DSName() override;

    const char* name() const { return _name.string(); }
    DSArgType argType() const { return _argType; }
    DSServiceType serviceType() const { return _serviceType; }
    DSResource* argument() const { return _argument; }  // not counted for the caller

    // Name, argument type and service type take part; the argument does not.
    unsigned hash() const override;
    // The names by strcmp, then the argument types, then the service types;
    // -1 against anything that is not a DSName.
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    TBString _name;
    DSArgType _argType;
    DSServiceType _serviceType;
    DSResource* _argument;  // referenced, or null
};

#endif
