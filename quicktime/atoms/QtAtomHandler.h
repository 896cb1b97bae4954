// QtAtomHandler: the handler reference ('hdlr'). In an 'mdia' it names the media type (component
// type 'mhlr', subtype 'vide', 'soun', 'tmcd', ...); in a 'minf' it names the data handler. The
// component name is held as an owned C string and always written back as a Pascal string.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomHandler : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 24;

    // A new handler named after its subtype (see defaultName); its size stays at the fixed part
    // until the owner recomputes it with resetSize().
    QtAtomHandler(BaseQtAtom const* parent, QtAtomIdType componentType, QtAtomIdType componentSubtype);
    ~QtAtomHandler() override;
    QtAtomHandler(QtAtomHandler const&) = delete;
    QtAtomHandler& operator=(QtAtomHandler const&) = delete;

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    // Writes the fields and the name as a Pascal string, never past the atom's own size: a name
    // longer than the room the size leaves is cut, and a shorter one is followed by zero bytes.
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    unsigned long getVariableSize() const override;
    void show() const override;

    QtAtomHandler* write() const { return static_cast<QtAtomHandler*>(BaseQtAtom::write()); }

    // Replaces the name with a copy (null for none).
    void setName(char const* name) const;
    char const* getName() const { return m_name; }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    QtAtomIdType getComponentType() const { return m_componentType; }
    QtAtomIdType getComponentSubtype() const { return m_componentSubtype; }
    uint32_t getManufacturer() const { return m_manufacturer; }
    uint32_t getComponentFlags() const { return m_componentFlags; }
    uint32_t getComponentFlagsMask() const { return m_componentFlagsMask; }

    // The name a new handler of this subtype carries, or null.
    static char const* defaultName(QtAtomIdType componentSubtype);

  private:
    void decodeName(QtAtomBuffer& buffer);

    QtVersionAndFlags m_versionAndFlags;
    QtAtomIdType m_componentType;
    QtAtomIdType m_componentSubtype;
    uint32_t m_manufacturer = 0;
    uint32_t m_componentFlags = 0;
    uint32_t m_componentFlagsMask = 0;
    char* m_name = nullptr;  // owned, zero-terminated; null for none
};
