// Atoms kept as raw bytes. QtPreserved holds a body; QtAtomPreserved is an atom of any type whose
// body is held in memory and written back unchanged; QtAtomPad stands for the four zero bytes that
// may end the child list of a 'udta' atom.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"

class QtPreserved {
public:
    QtPreserved() = default;
    ~QtPreserved() { delete[] m_data; }
    QtPreserved(QtPreserved const& other);
    QtPreserved& operator=(QtPreserved const&) = delete;

    // Replaces the data with n bytes taken from the buffer (never more than it holds).
    void decode(QtAtomBuffer& buffer, unsigned int n);
    void encode(QtAtomBuffer& buffer) const;
    // Replaces the data with n zero bytes.
    void zero(unsigned int n);
    unsigned char const* getData() const { return m_data; }
    unsigned int getSize() const { return m_size; }

private:
    unsigned char* m_data = nullptr;
    unsigned int m_size = 0;
};

class QtAtomPreserved : public BaseQtAtom {
public:
    QtAtomPreserved(BaseQtAtom const* parent, QtAtomIdType id) : BaseQtAtom(id, parent, 8) {}
    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned long getVariableSize() const override { return m_body.getSize(); }
    QtPreserved const& getBody() const { return m_body; }

private:
    QtPreserved m_body;
};

class QtAtomPad : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kPadId = 0x70616400;  // 'p' 'a' 'd' and a zero byte
    explicit QtAtomPad(BaseQtAtom const* parent) : BaseQtAtom(kPadId, parent, 4) {}
    using BaseQtAtom::decode;
    // Exactly four zero bytes, no header.
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return 4; }
};
