#include "quicktime/atoms/QtAtomHandler.h"

#include <algorithm>
#include <cstring>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomHandler::QtAtomHandler(BaseQtAtom const* parent, QtAtomIdType componentType,
                             QtAtomIdType componentSubtype)
    : BaseQtAtom(qtId("hdlr"), parent, 8 + kBodySize),
      m_componentType(componentType),
      m_componentSubtype(componentSubtype),
      m_name(copyString(defaultName(componentSubtype))) {}

QtAtomHandler::~QtAtomHandler() { delete[] m_name; }

char const* QtAtomHandler::defaultName(QtAtomIdType componentSubtype) {
    switch (componentSubtype) {
        case qtId("alis"):
            return "Apple Alias Data Handler";
        case qtId("soun"):
            return "Apple Sound Media Handler";
        case qtId("tmcd"):
            return "Time Code Media Handler";
        case qtId("vide"):
            return "Apple Video Media Handler";
        default:
            return nullptr;
    }
}

bool QtAtomHandler::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_componentType = decodeUint32(buffer);
    m_componentSubtype = decodeUint32(buffer);
    m_manufacturer = decodeUint32(buffer);
    m_componentFlags = decodeUint32(buffer);
    m_componentFlagsMask = decodeUint32(buffer);
    decodeName(buffer);
    return true;
}

// The name is a Pascal string when its first byte fits the room the atom leaves; otherwise that
// byte is taken as the first character of a C string (as other writers store the name) that ends
// at its first zero byte. Either way exactly the atom's remaining bytes are consumed. Nothing is
// read beyond the bytes present in the buffer.
void QtAtomHandler::decodeName(QtAtomBuffer& buffer) {
    delete[] m_name;
    m_name = nullptr;
    unsigned long room = QtAtomHelpers::roomAfter(*this, getFixedSize());
    unsigned int present = buffer.nOccupied();
    if (present > 0) {
        char const* bytes = reinterpret_cast<char const*>(buffer.ptrData());
        unsigned int length = static_cast<unsigned char>(bytes[0]);
        if (length <= room) {
            length = std::min(length, present - 1);
            m_name = new char[length + 1];
            memcpy(m_name, bytes + 1, length);
            m_name[length] = 0;
        } else {
            unsigned int copied = std::min(length, present);
            m_name = new char[copied + 1];
            memcpy(m_name, bytes, copied);
            m_name[copied] = 0;
        }
    }
    buffer.removeInput(std::min<unsigned long>(room, present));
}

bool QtAtomHandler::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_componentType);
    encode(buffer, m_componentSubtype);
    encode(buffer, m_manufacturer);
    encode(buffer, m_componentFlags);
    encode(buffer, m_componentFlagsMask);
    unsigned long room = QtAtomHelpers::roomAfter(*this, getFixedSize());
    if (room > 0) {
        size_t length = std::min<size_t>({m_name ? strlen(m_name) : 0, room - 1, 255});
        encode(buffer, static_cast<unsigned char>(length));
        buffer.append(m_name, static_cast<unsigned int>(length));
    }
    QtAtomHelpers::padToSize(*this, buffer, before);
    return true;
}

unsigned long QtAtomHandler::getVariableSize() const {
    size_t length = m_name ? strlen(m_name) : 0;
    return std::min<size_t>(length, 255) + 1;
}

void QtAtomHandler::setName(char const* name) const { copyString(write()->m_name, name); }

void QtAtomHandler::show() const {
    infoMsg("%s,type=%s.%s,%s\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(),
            QtIdName(m_componentType).render(), QtIdName(m_componentSubtype).render(), m_name ? m_name : "");
}
