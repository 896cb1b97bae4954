#include "quicktime/descriptions/QtxAtom.h"

#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/atoms/QtIdName.h"

namespace {

// Nesting depth of the child lists being read on this thread.
thread_local unsigned int t_nesting = 0;

struct NestingGuard {
    NestingGuard() { ++t_nesting; }
    ~NestingGuard() { --t_nesting; }
};

}  // namespace

Qtx::Atom::Atom(QtAtomIdType type, unsigned int size) : m_size(size), m_type(type) {}

Qtx::Atom::~Atom() {
    destroyChain(m_child);
    destroyChain(m_sibling);
}

// Deletes a sibling chain one atom at a time, so that a long chain costs no stack depth.
void Qtx::Atom::destroyChain(Atom* first) {
    while (first) {
        Atom* next = first->m_sibling;
        first->m_sibling = nullptr;
        delete first;
        first = next;
    }
}

bool Qtx::Atom::encode(QtAtomBuffer& buffer) {
    if (!m_isRoot) encodeHeader(buffer);
    return encodeKids(buffer);
}

void Qtx::Atom::appendSibling(Atom* atom) {
    if (!atom) return;
    appendSiblingLink(atom);
}

void Qtx::Atom::appendSiblingLink(Atom* atom) {
    atom->m_parent = m_parent;
    atom->m_sibling = m_sibling;
    m_sibling = atom;
    if (m_parent && m_parent->m_lastChild == this) m_parent->m_lastChild = atom;
}

Qtx::Atom const* Qtx::Atom::findChild(QtAtomIdType type) const {
    if (m_type == type) return this;
    for (Atom const* child = m_child; child; child = child->m_sibling)
        if (Atom const* found = child->findChild(type)) return found;
    return nullptr;
}

Qtx::Atom* Qtx::Atom::findChild(QtAtomIdType type) {
    if (m_type == type) return this;
    for (Atom* child = m_child; child; child = child->m_sibling)
        if (Atom* found = child->findChild(type)) return found;
    return nullptr;
}

bool Qtx::Atom::decode(QtAtomBuffer& buffer) {
    if (!m_isRoot && m_size < kHeaderSize) return false;
    if (t_nesting >= kMaxNesting) return false;
    NestingGuard nesting;
    unsigned int remaining = m_isRoot ? m_size : m_size - kHeaderSize;
    while (remaining > 7) {
        Atom* child = Qtx::create(buffer, remaining);
        if (!child) return false;
        remaining -= child->getSize();
        appendChild(child);
    }
    return remaining == 0;
}

bool Qtx::Atom::decode(QtAtomBuffer& buffer, unsigned int size) {
    m_size = size;
    return decode(buffer);
}

AutoPtr<char> Qtx::Atom::toString() const {
    if (m_isRoot) return copyText("");
    QtIdName id(m_type);
    char const* name = m_type == 0 ? "pad" : id.render();
    if (quicktimeDbg.on(QtDbgAllSizes)) return FormatStr("%s:%db", name, static_cast<int>(getSize()));
    return copyText(name);
}

void Qtx::Atom::appendChild(Atom* atom) {
    if (!atom) return;
    atom->m_parent = this;
    atom->m_sibling = nullptr;
    if (!m_child)
        m_child = atom;
    else
        m_lastChild->m_sibling = atom;
    m_lastChild = atom;
    resetKeptSize();
}

void Qtx::Atom::replaceChild(Atom* atom) {
    if (!atom) return;
    Atom* child = m_child;
    while (child) {
        Atom* next = child->m_sibling;
        if (child->m_type == atom->m_type) {
            child->removeSelf();
            delete child;
        }
        child = next;
    }
    appendChild(atom);
}

void Qtx::Atom::removeSelf() {
    if (!m_parent) return;
    if (m_parent->m_child == this) {
        m_parent->m_child = m_sibling;
    } else {
        Atom* before = m_parent->m_child;
        while (before && before->m_sibling != this) before = before->m_sibling;
        if (before) before->m_sibling = m_sibling;
        if (before && m_parent->m_lastChild == this) m_parent->m_lastChild = before;
    }
    if (m_parent->m_child == nullptr) m_parent->m_lastChild = nullptr;
    m_parent = nullptr;
    m_sibling = nullptr;
}

unsigned int Qtx::Atom::getSize() const {
    if (m_size != 0) return m_size;
    unsigned int size = m_isRoot ? 0 : kHeaderSize;
    for (Atom const* child = m_child; child; child = child->m_sibling) size += child->getSize();
    m_size = size;
    return size;
}

void Qtx::Atom::encodeHeader(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer, getSize());
    BaseQtAtom::encode(buffer, m_type);
}

bool Qtx::Atom::encodeKids(QtAtomBuffer& buffer) {
    bool ok = true;
    for (Atom* child = m_child; child; child = child->m_sibling) ok = child->encode(buffer) && ok;
    return ok;
}

AutoPtr<char> Qtx::Atom::treeString() const {
    std::string text = toString().get();
    if (m_child) {
        text += "{";
        for (Atom const* child = m_child; child; child = child->m_sibling) {
            if (child != m_child) text += ",";
            text += child->treeString().get();
        }
        text += "}";
    }
    return copyText(text.c_str());
}

bool Qtx::Atom::hasBody(QtAtomBuffer const& buffer, unsigned int fieldBytes) const {
    unsigned int body = getBodySize();
    return m_size >= kHeaderSize && body >= fieldBytes && buffer.nOccupied() >= body;
}

void Qtx::Atom::keepTrailing(QtAtomBuffer& buffer, unsigned int fieldBytes) {
    unsigned int body = getBodySize();
    m_trailing.decode(buffer, body > fieldBytes ? body - fieldBytes : 0);
}

Qtx::Root::Root() : Atom(0, 0) { markRoot(); }

Qtx::Wave::Wave(unsigned int size) : Atom(qtId("wave"), size) {}

Qtx::Terminator::Terminator(unsigned int size) : Atom(0, size) {}

Qtx::Unknown::Unknown(QtAtomIdType type, unsigned int size) : Atom(type, size) {}

bool Qtx::Unknown::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, 0)) return false;
    keepTrailing(buffer, 0);
    return true;
}

bool Qtx::Unknown::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    encodeTrailing(buffer);
    return true;
}

AutoPtr<char> Qtx::Unknown::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s=?", base.get());
}
