// UTF8ToQtAlias and QtAliasToUTF8: converters between the UTF-8 names held in memory and the 8-bit
// text of alias records, each holding its result for as long as the converter lives. They wrap
// utf8_to_qtalias and qtalias_to_utf8 of the framework.
#pragma once

#include <cstring>

#include "framework/AliasText.h"
#include "framework/AutoPtr.h"

class UTF8ToQtAlias {
  public:
    explicit UTF8ToQtAlias(char const* utf8) : m_buf(utf8_to_qtalias(utf8, &m_substituted)) {}
    char const* getBuf() const { return m_buf.get(); }
    unsigned int getLength() const { return static_cast<unsigned int>(strlen(m_buf.get())); }
    // Characters that alias text cannot hold and that were replaced by kAliasSubstitute.
    unsigned int getSubstituted() const { return m_substituted; }

  private:
    unsigned int m_substituted = 0;
    AutoPtr<char> m_buf;  // never null
};

class QtAliasToUTF8 {
  public:
    explicit QtAliasToUTF8(char const* alias) : m_buf(qtalias_to_utf8(alias)) {}
    char const* getBuf() const { return m_buf.get(); }

  private:
    AutoPtr<char> m_buf;  // never null
};
