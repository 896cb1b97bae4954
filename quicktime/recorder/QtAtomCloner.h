// QtAtomCloner: moves atoms between trees as bytes. `serialize` gives an atom with its subtree as
// the bytes a file would hold (bodies the tree left on disk are read from the source file), and
// `build` decodes such bytes into atoms under a new parent through the factory, as the reader does.
// The recorder builds its tracks this way: from the bytes of a fixed template, or from a track of
// another movie. Atoms whose body a reader would leave on disk are kept in memory instead
// (QtAtomPreserved), so that the new tree never depends on bytes of a file it does not own.
//
// Threads: the caller's; the source tree is only read.
#pragma once

#include <functional>
#include <vector>

class BaseQtAtom;
class BasicFileIO;

class QtAtomCloner {
  public:
    // Appends the bytes of `atom` and its subtree to `out`; children for which `keep` answers false
    // are left out (the sizes above them follow). False when a body cannot be read or an atom is
    // too large to copy.
    static bool serialize(BaseQtAtom const& atom, BasicFileIO* source, std::vector<unsigned char>& out,
                          std::function<bool(BaseQtAtom const&)> const& keep);
    // Decodes the atom whose bytes (header included) start at `bytes` under `parent`, with its
    // children; null when the bytes do not hold an atom.
    static BaseQtAtom const* build(BaseQtAtom const* parent, unsigned char const* bytes, unsigned long size);

    // Largest atom copied into memory.
    static constexpr unsigned long kMaxAtomBytes = 16ul << 20;
};

// Big-endian byte writer for atom templates: `open` starts an atom whose size `close` fills in.
class QtAtomBytes {
  public:
    QtAtomBytes& u8(unsigned int v) { m_bytes.push_back(static_cast<unsigned char>(v)); return *this; }
    QtAtomBytes& u16(unsigned int v) { return u8(v >> 8).u8(v); }
    QtAtomBytes& u32(unsigned long v) { return u16(static_cast<unsigned int>(v >> 16) & 0xFFFF).u16(v & 0xFFFF); }
    QtAtomBytes& fourcc(char const* text) {
        for (int i = 0; i < 4; ++i) u8(static_cast<unsigned char>(text[i]));
        return *this;
    }
    QtAtomBytes& zeros(unsigned int n) { m_bytes.insert(m_bytes.end(), n, 0); return *this; }
    QtAtomBytes& pascal(char const* text);
    QtAtomBytes& open(char const* type);
    QtAtomBytes& close();
    std::vector<unsigned char> const& bytes() const { return m_bytes; }

  private:
    std::vector<unsigned char> m_bytes;
    std::vector<size_t> m_open;
};
