#include "quicktime/atoms/QtAtomString.h"

#include <cstring>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomString::QtAtomString(BaseQtAtom const* parent, QtAtomIdType id) : BaseQtAtom(id, parent, 8) {}

QtAtomString::~QtAtomString() { delete[] m_text; }

bool QtAtomString::decode(QtAtomBuffer& buffer) {
    bool valid = BaseQtAtom::decode(buffer);
    delete[] m_text;
    m_length = QtAtomHelpers::bytesLeft(*this, buffer);
    m_text = new char[m_length + 1];
    memcpy(m_text, buffer.ptrData(), m_length);
    m_text[m_length] = 0;
    buffer.removeInput(m_length);
    return valid;
}

bool QtAtomString::encode(QtAtomBuffer& buffer) const {
    bool fits = QtAtomHelpers::fitsItsSize(*this, "text");
    BaseQtAtom::encode(buffer);
    buffer.append(m_text, static_cast<unsigned int>(QtAtomHelpers::entriesThatFit(*this, m_length, 1)));
    return fits;
}

void QtAtomString::setText(char const* text) const {
    QtAtomString* self = write();
    delete[] self->m_text;
    self->m_text = copyString(text);
    self->m_length = text ? static_cast<unsigned int>(strlen(text) + 1) : 0;
}

void QtAtomString::show() const { infoMsg("%s,\"%s\"\n", toString().get(), getText()); }
