// QtAtomSean: the 'sean' atom: three 32-bit values and child atoms (see QtAtomValueTriple).
#pragma once

#include "quicktime/atoms/QtAtomValueTriple.h"

class QtAtomSean : public QtAtomValueTriple {
  public:
    explicit QtAtomSean(BaseQtAtom const* parent) : QtAtomValueTriple(parent) {}
    QtAtomSean* write() const { return static_cast<QtAtomSean*>(BaseQtAtom::write()); }
};
