// Qtx::Atom: one atom of a sample description's extension area, in a light tree of its own that is
// separate from the file-level BaseQtAtom tree. Also the structural members of the family: the
// headerless Root, the 'wave' group, the type-0 Terminator and Unknown, which keeps its body verbatim.
//
// Ownership: an atom owns its first child and, through the sibling chain, every later sibling, so
// destroying an atom destroys its children and every sibling after it; removeSelf() only unlinks.
// Sizes: a size of 0 means "compute from the children" (header plus children, the root counting no
// header); the computed value is kept, and appendChild/replaceChild clear the receiver's size so that
// it is computed again. Nothing else is recomputed: an atom that changes in place keeps its parents'
// kept sizes, which is what lets a filled-in 'avcC' stay inside the room it reserved.
// Bytes a fixed-body atom does not interpret beyond its fields are kept as read and written back, so
// that re-encoding the tree reproduces every atom byte for byte.
#pragma once

#include "framework/AutoPtr.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/descriptions/Qtx.h"

class Qtx::Atom {
public:
    static constexpr unsigned int kHeaderSize = 8;

    Atom(QtAtomIdType type, unsigned int size);
    virtual ~Atom();
    Atom(Atom const&) = delete;
    Atom& operator=(Atom const&) = delete;

    virtual bool isLittleEndian() const { return false; }
    virtual unsigned int getNumFields() const { return 1; }
    virtual unsigned int getDnxHDCompressionID() const { return 0; }
    virtual unsigned int getEncodedWidth() const { return 0; }
    virtual unsigned int getEncodedHeight() const { return 0; }
    virtual unsigned char getDetail() const { return 0; }
    virtual QtAtomIdType getColorParamType() const { return 0; }
    virtual unsigned short getPrimaries() const { return 0; }
    virtual unsigned short getTransferFunction() const { return 0; }
    virtual unsigned short getMatrix() const { return 0; }
    virtual unsigned int getAvcSpsPpsLength() const { return 0; }
    virtual unsigned char const* getAvcSpsPps() const { return nullptr; }
    virtual unsigned char getAvcNalUnitLengthSize() const { return 0; }
    virtual unsigned int getEsdsLength() const { return 0; }
    virtual unsigned char const* getEsds() const { return nullptr; }
    // Writes the header (not for the root) and the children. The caller provides room for
    // getSize() bytes.
    virtual bool encode(QtAtomBuffer& buffer);
    // Links `atom` directly after this one, under the same parent.
    virtual void appendSibling(Atom* atom);
    // This atom when its type matches, else the first match in a depth-first walk of the children.
    virtual Atom const* findChild(QtAtomIdType type) const;
    virtual Atom* findChild(QtAtomIdType type);
    // Reads the body (the header has been read by Qtx::create). The base reads child atoms from
    // the size minus the header (the whole size for the root); true only when they fill it exactly.
    virtual bool decode(QtAtomBuffer& buffer);
    // Sets the size, then reads the body as above.
    virtual bool decode(QtAtomBuffer& buffer, unsigned int size);
    // The type as a printable id ("pad" for type 0), with ":<size>b" when debug flag 0 is on; the
    // root's form is empty.
    virtual AutoPtr<char> toString() const;

    void appendChild(Atom* atom);
    // Destroys every child of the atom's type, then appends the atom.
    void replaceChild(Atom* atom);
    // Unlinks this atom from its parent's children; the caller then owns it.
    void removeSelf();

    unsigned int getSize() const;
    QtAtomIdType getType() const { return m_type; }
    bool isRoot() const { return m_isRoot; }
    Atom const* getParent() const { return m_parent; }
    Atom const* getSibling() const { return m_sibling; }
    Atom const* getChild() const { return m_child; }
    Atom* getSibling() { return m_sibling; }
    Atom* getChild() { return m_child; }
    // Bytes after the interpreted fields, kept as read (the whole body for Unknown).
    QtPreserved const& getTrailing() const { return m_trailing; }

    void encodeHeader(QtAtomBuffer& buffer) const;
    bool encodeKids(QtAtomBuffer& buffer);
    // toString() followed, when there are children, by "{" + their tree strings joined by "," + "}".
    AutoPtr<char> treeString() const;

    // Containers nested deeper than this are refused while reading, which bounds the recursion of
    // every tree walk.
    static constexpr unsigned int kMaxNesting = 16;

protected:
    void setSize(unsigned int size) { m_size = size; }
    void markRoot() { m_isRoot = true; }
    // The body length (size minus header), and whether the buffer holds the whole body and the body
    // holds at least `fieldBytes`. Every fixed-body decoder asks this before reading a field.
    unsigned int getBodySize() const { return m_size > kHeaderSize ? m_size - kHeaderSize : 0; }
    bool hasBody(QtAtomBuffer const& buffer, unsigned int fieldBytes) const;
    // Keeps the body bytes after the first `fieldBytes` (which have been read) as trailing bytes.
    void keepTrailing(QtAtomBuffer& buffer, unsigned int fieldBytes);
    // Keeps the next `n` bytes of the buffer (never more than it holds) as trailing bytes.
    void keepTrailingBytes(QtAtomBuffer& buffer, unsigned int n) { m_trailing.decode(buffer, n); }
    // Replaces the trailing bytes by `n` zero bytes.
    void zeroTrailing(unsigned int n) { m_trailing.zero(n); }
    void encodeTrailing(QtAtomBuffer& buffer) const { m_trailing.encode(buffer); }

private:
    static void destroyChain(Atom* first);
    void appendSiblingLink(Atom* atom);
    void resetKeptSize() { m_size = 0; }

    mutable unsigned int m_size;  // 0 until computed from the children
    QtAtomIdType m_type;
    Atom* m_parent = nullptr;   // not owned
    Atom* m_sibling = nullptr;  // owned
    Atom* m_child = nullptr;    // owned
    Atom* m_lastChild = nullptr;  // the end of the child chain, so that an append costs no walk
    bool m_isRoot = false;
    QtPreserved m_trailing;
};

// The top of an extension tree: no header of its own, counts 0 bytes, size is that of its children.
class Qtx::Root : public Qtx::Atom {
public:
    Root();
};

// The 'wave' group of sound descriptions: a container of child atoms.
class Qtx::Wave : public Qtx::Atom {
public:
    // Size 0: computed from the children added later.
    explicit Wave(unsigned int size = 0);
};

// An atom of type 0 with a nonzero size, written after the 'wave' children of sound descriptions.
// Normally empty (8 bytes); any children it claims are read like a container's.
class Qtx::Terminator : public Qtx::Atom {
public:
    explicit Terminator(unsigned int size = kHeaderSize);
};

// Any other type: the body is not interpreted and is written back exactly as read.
class Qtx::Unknown : public Qtx::Atom {
public:
    Unknown(QtAtomIdType type, unsigned int size);
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;
};
