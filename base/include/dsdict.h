// DSDictionary: a DSSet whose elements are DSAssoc objects, found by key.
#ifndef KELVANOR_DSDICT_H
#define KELVANOR_DSDICT_H

#include <kelvanor/dsassoc.h>
#include <kelvanor/dsset.h>

class DSDictionary : public DSSet {
    TB_DECLARE_CLASS(DSDictionary);

public:
    explicit DSDictionary(unsigned n = 16) : DSSet(n) {}
    DSDictionary(const DSDictionary& other) : DSSet(other) {}
    explicit DSDictionary(TBistream& strm);
    DSDictionary& operator=(const DSDictionary& other) {
        DSSet::operator=(other);
        return *this;
    }

    // Only a DSAssoc is taken; anything else gives null and changes nothing.
    DSResource* add(DSResource& x) override;
    // Only a DSAssoc can be found; anything else gives 0.
    int remove(const DSResource& x) override;
    // How many values are equal to x (keys are not looked at).
    unsigned occurrencesOf(const DSResource& x) const override;

    // Makes an association of key and value and adds it. If the key is
    // present already the old value stays, the new association is deleted
    // (which frees key and value if nothing else holds them) and the result
    // is null.
    virtual DSAssoc* addAssoc(DSResource& key, DSResource& value);
    virtual DSAssoc* assocAt(const DSResource& key) const;  // null if absent
    virtual bool includesKey(const DSResource& key) const;
    // Removes the association of key: 1, or 0 if there is none.
    virtual int removeKey(const DSResource& key);
    virtual int removeAssoc(const DSAssoc& assoc);
    virtual DSResource* atKey(const DSResource& key) const;  // the value, or null

    // Count difference first, then the tables in step, keys before values.
    int compare(const TBObject& other) const override;
};

#endif
