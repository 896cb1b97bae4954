#include "quicktime/atoms/QtAtomPreserved.h"

#include <cstring>

#include "quicktime/atoms/QtUserDataSet.h"

QtPreserved::QtPreserved(QtPreserved const& other) : m_size(other.m_size) {
    if (m_size) {
        m_data = new unsigned char[m_size];
        memcpy(m_data, other.m_data, m_size);
    }
}

void QtPreserved::decode(QtAtomBuffer& buffer, unsigned int n) {
    delete[] m_data;
    m_data = nullptr;
    if (n > buffer.nOccupied()) n = buffer.nOccupied();
    m_size = n;
    if (n == 0) return;
    m_data = new unsigned char[n];
    memcpy(m_data, buffer.ptrData(), n);
    buffer.removeInput(n);
}

void QtPreserved::encode(QtAtomBuffer& buffer) const {
    if (m_size == 0) return;
    buffer.append(m_data, m_size);
}

void QtPreserved::zero(unsigned int n) {
    delete[] m_data;
    m_data = n ? new unsigned char[n]() : nullptr;
    m_size = n;
}

bool QtAtomPreserved::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    unsigned long body = getSize() > getFixedSize() ? getSize() - getFixedSize() : 0;
    m_body.decode(buffer, static_cast<unsigned int>(body));
    return ok;
}

bool QtAtomPreserved::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_body.encode(buffer);
    return true;
}

bool QtAtomPad::decode(QtAtomBuffer& buffer) {
    write();
    buffer.removeInput(4);
    return true;
}

bool QtAtomPad::encode(QtAtomBuffer& buffer) const {
    buffer.append(4, true);
    return true;
}

BaseQtAtom* QtUserDataSet::createUserAtom(BaseQtAtom const* parent, QtAtomIdType id) {
    return new QtAtomPreserved(parent, id);
}
