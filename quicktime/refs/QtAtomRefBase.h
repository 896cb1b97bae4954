// QtAtomRefBase: the common header of the data reference atoms inside 'dref': the atom header and
// a version-and-flags word whose flag 0x1 marks a self reference (the media data is in the movie
// file itself and nothing follows).
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomRefBase : public BaseQtAtom {
  public:
    static constexpr unsigned int kSelfReference = 0x1;

    QtAtomRefBase(QtAtomIdType type, BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show() const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + 4; }

    // Changes the flags, marking the atom changed only when they differ.
    void setFlags(unsigned int flags) const;
    unsigned int getFlags() const { return m_versionAndFlags.flags; }
    bool isSelfReference() const { return (m_versionAndFlags.flags & kSelfReference) != 0; }

  protected:
    // Bytes of the body after the fixed part that the buffer really holds, bounded by the atom's
    // size: what a decoder may read past the reference header.
    unsigned int bodyBytesLeft(QtAtomBuffer const& buffer) const;

    QtVersionAndFlags m_versionAndFlags;
};
