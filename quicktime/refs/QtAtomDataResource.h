// QtAtomDataResource: the resource data reference ('rsrc'), a reference header with nothing of its
// own after it. Bytes that another writer put after the header are kept and written back, so the
// atom keeps its size.
#pragma once

#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/refs/QtAtomRefBase.h"

class QtAtomDataResource : public QtAtomRefBase {
  public:
    explicit QtAtomDataResource(BaseQtAtom const* parent) : QtAtomRefBase(qtId("rsrc"), parent) {}

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned long getVariableSize() const override { return m_rest.getSize(); }

  private:
    QtPreserved m_rest;
};
