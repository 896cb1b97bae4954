// QtAtomDataRefHdr: the data reference list ('dref' inside 'dinf'). After its version and flags
// and a count it holds one reference atom per place where the track's media lies ('alis', 'rsrc',
// 'url ', ...), read and written as child atoms of their own. Sample descriptions name a reference
// by its 1-based position in this list.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomDataRefHdr : public BaseQtAtom {
  public:
    explicit QtAtomDataRefHdr(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show() const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + 8; }
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
    bool needsAllData() const override { return false; }

    // The number of references as stored; the owner that adds or removes a reference keeps it in
    // step with the children. setCount marks the atom changed only when the count differs.
    unsigned int getCount() const { return m_count; }
    void setCount(unsigned int count) const;

  private:
    QtVersionAndFlags m_versionAndFlags;
    unsigned int m_count = 0;
};
