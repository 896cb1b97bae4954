// QtAtomObjectDesc: the initial object descriptor ('iods') of an MPEG-4 movie. Only the
// descriptor's tag is interpreted; the descriptor bytes are kept as read and written back unchanged.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

// The part of an MPEG-4 descriptor that is common to all kinds: its tag.
struct BaseDescriptor {
    uint8_t tag = 0;
};

class QtAtomObjectDesc : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 5;  // version and flags, descriptor tag

    // A new atom is given the id 'hmhd' and the size 13 until its real id is set or decoded.
    explicit QtAtomObjectDesc(BaseQtAtom const* parent);
    ~QtAtomObjectDesc() override;
    QtAtomObjectDesc(QtAtomObjectDesc const&) = delete;
    QtAtomObjectDesc& operator=(QtAtomObjectDesc const&) = delete;

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    unsigned long getVariableSize() const override { return m_length; }
    void show() const override;

    QtAtomObjectDesc* write() const { return static_cast<QtAtomObjectDesc*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint8_t getTag() const { return m_descriptor.tag; }
    unsigned char const* getBytes() const { return m_bytes; }
    unsigned int getLength() const { return m_length; }
    // The descriptor bytes in lower-case hexadecimal.
    AutoPtr<char> bytesText() const;

  private:
    QtVersionAndFlags m_versionAndFlags;
    BaseDescriptor m_descriptor;
    unsigned char* m_bytes = nullptr;  // owned; null when there are none
    unsigned int m_length = 0;
};
