// QtAtomString: an atom whose whole body is text. The text is held with its terminating zero,
// which is part of the body, so that resetSize() gives the size the text needs; a body read from a
// file is kept exactly as it is (a terminator is added in memory only when the body has none).
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomString : public BaseQtAtom {
  public:
    QtAtomString(BaseQtAtom const* parent, QtAtomIdType id);
    ~QtAtomString() override;
    QtAtomString(QtAtomString const&) = delete;
    QtAtomString& operator=(QtAtomString const&) = delete;

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned long getVariableSize() const override { return m_length; }
    void show() const override;

    QtAtomString* write() const { return static_cast<QtAtomString*>(BaseQtAtom::write()); }

    // Replaces the text (null for none); the body becomes the text and its terminating zero.
    void setText(char const* text) const;
    char const* getText() const { return m_text ? m_text : ""; }

  private:
    char* m_text = nullptr;     // owned; m_length bytes of body and a terminator
    unsigned int m_length = 0;  // body bytes
};
