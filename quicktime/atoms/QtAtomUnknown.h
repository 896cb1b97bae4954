// Atoms whose body is not interpreted. QtAtomUnknown leaves its body in place on disk: decoding
// skips it and encoding writes only the header, so that a body of gigabytes (an 'mdat') is never
// read into memory. QtAtomFree is the same for 'free' space; QtAtomWide is the 8-byte placeholder
// that makes room for a later 64-bit size of the atom after it.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomUnknown : public BaseQtAtom {
public:
    QtAtomUnknown(QtAtomIdType id, BaseQtAtom const* parent, unsigned long size) : BaseQtAtom(id, parent, size) {}
    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    // Writes the header only; true only when there is no body to leave in place.
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasUntouchedData() const override { return getSize() > 8; }
    bool needsAllData() const override { return false; }
    unsigned long getVariableSize() const override { return getSize() > getFixedSize() ? getSize() - getFixedSize() : 0; }
};

class QtAtomFree : public QtAtomUnknown {
public:
    explicit QtAtomFree(BaseQtAtom const* parent) : QtAtomUnknown(qtId("free"), parent, 8) {}
};

class QtAtomWide : public BaseQtAtom {
public:
    explicit QtAtomWide(BaseQtAtom const* parent) : BaseQtAtom(qtId("wide"), parent, 8) {}
    unsigned int getFixedSize() const override { return 8; }
    bool hasUntouchedData() const override { return getSize() > 8; }
    bool needsAllData() const override { return false; }
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
};
