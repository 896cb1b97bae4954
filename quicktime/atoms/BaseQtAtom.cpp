#include "quicktime/atoms/BaseQtAtom.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "framework/BasicFileIO.h"
#include "framework/ByteOrder.h"
#include "framework/Clock.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/atoms/QtUserDataSet.h"

void BaseQtAtom::MethodCall::call(BaseQtAtom const* atom) const {
    if (kind == 1)
        (atom->*call1)(arg);
    else
        (atom->*call0)();
}

BaseQtAtom::BaseQtAtom(QtAtomIdType id, BaseQtAtom const* parent, unsigned long size) : m_size(size), m_id(id) {
    if (parent) parent->appendChild(this);
}

BaseQtAtom::BaseQtAtom() = default;

BaseQtAtom::BaseQtAtom(BaseQtAtom const& other)
    : m_size(other.m_size),
      m_id(other.m_id),
      m_headerSize(8),
      m_decoded(other.m_decoded),
      m_dirty(other.m_dirty),
      m_openEnded(other.m_openEnded),
      m_fileOffset(other.m_fileOffset) {}

BaseQtAtom::~BaseQtAtom() {
    delete m_child;
    // Destroy the later siblings one by one rather than recursively, so that a long chain of
    // siblings (many entries under one parent) does not deepen the stack.
    BaseQtAtom const* next = m_sibling;
    while (next) {
        BaseQtAtom const* after = next->m_sibling;
        next->nonConst()->m_sibling = nullptr;
        delete next;
        next = after;
    }
}

BaseQtAtom* BaseQtAtom::write() const {
    BaseQtAtom* self = nonConst();
    self->m_dirty = true;
    return self;
}

void BaseQtAtom::setId(QtAtomIdType id) const {
    if (m_id != id) write()->m_id = id;
}

void BaseQtAtom::setSize(unsigned long size) const {
    if (m_size == size) return;
    write()->m_size = size;
    placed();
}

void BaseQtAtom::placed() const {
    if (m_desk) m_desk->setPlace(m_fileOffset, m_size);
}

// ---------------------------------------------------------------- user data hooks

QtResizeAction BaseQtAtom::resizeUserData() const {
    QtResizeAction action;
    for (BaseQtAtom const* child = m_child; child; child = child->m_sibling) action += child->resizeUserData();
    return action;
}

void BaseQtAtom::updateUserData(QtUserDataSet*) const {
    if (quicktimeDbg.on(QtDbgAtomErrors))
        debugMsg("%s:%s: is this a new Apple 4-cc atom?\n", getMoviePath(), getAtomPath().get());
}

void BaseQtAtom::updateAtom(UserDataValue const* value) const {
    if (quicktimeDbg.on(QtDbgAtomErrors))
        debugMsg("%s: can't update user data with %s\n", getAtomPath().get(), value ? value->toString().get() : "?");
}

// ---------------------------------------------------------------- header decode and encode

bool BaseQtAtom::decode(DontConsume, QtAtomBuffer& buffer) const {
    unsigned int before = buffer.bufferOffset();
    bool ok = decode(buffer);
    buffer.prepend(buffer.bufferOffset() - before);
    return ok;
}

bool BaseQtAtom::decode(QtAtomBuffer& buffer) const { return write()->decode(buffer); }

bool BaseQtAtom::decode(QtAtomBuffer& buffer) {
    m_dirty = true;
    m_fileOffset = buffer.fileOffset();
    if (buffer.nOccupied() < 8) {
        // Not even a short header: an invalid atom (the factory decides what becomes of it).
        m_size = buffer.nOccupied();
        m_id = 0;
        m_decoded = false;
        buffer.removeInput(buffer.nOccupied());
        placed();
        return false;
    }
    m_size = decodeUint32(buffer);
    m_id = decodeUint32(buffer);
    bool valid = QtIdName(m_id).valid();
    m_headerSize = 8;
    if (valid && m_size == 1 && buffer.nOccupied() >= 8) {
        m_size = decodeUint64(buffer);
        m_headerSize = 16;
    }
    if (m_size == 0 && m_id == qtId("mdat")) {
        AutoRefPtr<BasicFileIO> file = getRootFp();
        if (file) {
            unsigned long length = file->length();
            m_size = length > m_fileOffset ? length - m_fileOffset : 0;
            m_openEnded = true;
        }
        m_decoded = valid;
        placed();
        return valid;
    }
    // Smaller than its own header (a wide header counts 16 bytes): no atom can be made of it.
    if (m_size < m_headerSize) {
        m_id = 0;
        valid = false;
    }
    m_decoded = valid;
    placed();
    return valid;
}

bool BaseQtAtom::encode(QtAtomBuffer& buffer) const {
    if (m_size > 0xFFFFFFFFul || m_headerSize == 16) {
        encode(buffer, 1u);
        encode(buffer, static_cast<unsigned int>(m_id));
        encode(buffer, m_size);
    } else {
        encode(buffer, static_cast<unsigned int>(m_size));
        encode(buffer, static_cast<unsigned int>(m_id));
    }
    return true;
}

unsigned int BaseQtAtom::getEncodeSize() const {
    unsigned long size = m_child ? getFixedSize() : m_size;
    return static_cast<unsigned int>(size);
}

void BaseQtAtom::show() const { infoMsg("%s\n", toString().get()); }

void BaseQtAtom::setSizeAndOffset(QtTreeSize const& size) const {
    if (size.size != m_size || size.offset != m_fileOffset) {
        if (size.offset != m_fileOffset) moveBodyOnDisk(size.offset);
        BaseQtAtom* self = write();
        self->m_size = size.size;
        self->m_fileOffset = size.offset;
        placed();
    }
}

void BaseQtAtom::setOffset(unsigned long offset) const {
    if (offset == m_fileOffset) return;
    moveBodyOnDisk(offset);
    write()->m_fileOffset = offset;
    placed();
}

// A body that the tree does not hold (an uninterpreted atom read from a movie) lies only at the
// atom's place in the file, so it goes along when the atom moves: it is copied before the atom takes
// its new place, and so before any flush can show the movie there. The old place keeps its bytes
// (the movie that readers may still use). Top-level atoms never carry their bodies: an mdat does not
// move and a skip's body is dead.
bool BaseQtAtom::hasBodyOnDisk() const {
    return m_decoded && !m_child && m_size > getFixedSize() && hasUntouchedData() && !hasVirtualTable() &&
           m_parent && m_parent->findMovieContext();
}

void BaseQtAtom::moveBodyOnDisk(unsigned long offset) const {
    if (!hasBodyOnDisk()) return;
    unsigned long fixed = getFixedSize();
    QtRootContext const* root = findRootContext();
    AutoRefPtr<BasicFileIO> fp = root ? root->getFp() : AutoRefPtr<BasicFileIO>();
    BasicFileIO* file = fp.get();
    if (!file || !file->writable()) return;
    unsigned long from = m_fileOffset + fixed;
    unsigned long to = offset + fixed;
    unsigned long size = m_size - fixed;
    constexpr unsigned long kBlock = 64ul << 10;
    std::vector<unsigned char> block(std::min(kBlock, size));
    bool fromTheEnd = to > from;  // overlapping places: no byte is overwritten before it is read
    for (unsigned long done = 0; done < size;) {
        unsigned long n = std::min<unsigned long>(block.size(), size - done);
        unsigned long at = fromTheEnd ? size - done - n : done;
        long got = file->readAt(from + at, block.data(), n);
        if (got >= 0)
            std::fill(block.begin() + got, block.begin() + static_cast<long>(n), 0);  // past the file's end
        if (got < 0 || file->writeAt(to + at, block.data(), n) != static_cast<long>(n)) {
            errorMsg("%s: %s: cannot copy its body from %ld to %ld\n", getMoviePath(), getAtomPath().get(),
                     static_cast<long>(from), static_cast<long>(to));
            file->noteWriteFailure();
            return;
        }
        done += n;
    }
}

// ---------------------------------------------------------------- tree links

BaseQtAtom const* BaseQtAtom::getLastChild() const { return m_lastChild; }

void BaseQtAtom::relinkedTo(unsigned long offset) const {
    if (!hasBodyOnDisk()) nonConst()->m_fileOffset = offset;
    placed();
}

void BaseQtAtom::addToAncestors(long delta) const {
    for (BaseQtAtom const* a = m_parent; a; a = a->m_parent) {
        BaseQtAtom* w = a->write();
        w->m_size = static_cast<unsigned long>(static_cast<long>(w->m_size) + delta);
        a->placed();
    }
}

void BaseQtAtom::appendChild(BaseQtAtom const* child) const {
    if (!m_decoded) {
        BaseQtAtom* self = write();
        self->m_size += child->m_size;
        placed();
        addToAncestors(static_cast<long>(child->m_size));
    }
    BaseQtAtom* c = child->nonConst();
    c->m_parent = this;
    c->m_sibling = nullptr;
    c->m_previous = m_lastChild;
    if (BaseQtAtom const* last = m_lastChild) {
        child->relinkedTo(last->m_fileOffset + last->m_size);
        last->nonConst()->m_sibling = child;
    } else {
        child->relinkedTo(m_fileOffset + getFixedSize());
        nonConst()->m_child = child;
    }
    nonConst()->m_lastChild = child;
}

void BaseQtAtom::appendSibling(BaseQtAtom const* sibling) const {
    BaseQtAtom* s = sibling->nonConst();
    s->m_parent = m_parent;
    sibling->relinkedTo(m_fileOffset + m_size);
    s->m_sibling = m_sibling;
    s->m_previous = this;
    if (m_sibling)
        m_sibling->nonConst()->m_previous = sibling;
    else if (m_parent && m_parent->m_lastChild == this)
        m_parent->nonConst()->m_lastChild = sibling;
    nonConst()->m_sibling = sibling;
}

void BaseQtAtom::insertSibling(BaseQtAtom const* sibling) const {
    BaseQtAtom* s = sibling->nonConst();
    s->m_parent = m_parent;
    sibling->relinkedTo(m_fileOffset);
    s->m_sibling = this;
    s->m_previous = m_previous;
    if (m_previous)
        m_previous->nonConst()->m_sibling = sibling;
    else if (m_parent && m_parent->m_child == this)
        m_parent->nonConst()->m_child = sibling;
    BaseQtAtom* self = nonConst();
    self->m_previous = sibling;
    relinkedTo(m_fileOffset + sibling->m_size);
}

void BaseQtAtom::removeSelf(bool absorbSize) const {
    if (m_previous)
        m_previous->nonConst()->m_sibling = m_sibling;
    else if (m_parent && m_parent->m_child == this)
        m_parent->nonConst()->m_child = m_sibling;
    if (m_sibling) {
        BaseQtAtom* next = m_sibling->nonConst();
        next->m_previous = m_previous;
        if (absorbSize) {
            next->m_fileOffset = m_fileOffset;  // the bytes before it become part of it
            next->m_size += m_size;
            next->placed();
        } else {
            m_sibling->relinkedTo(m_fileOffset);
        }
    } else if (m_parent && m_parent->m_lastChild == this) {
        m_parent->nonConst()->m_lastChild = m_previous;
    }
    BaseQtAtom* self = nonConst();
    self->m_sibling = nullptr;
    self->m_previous = nullptr;
}

// ---------------------------------------------------------------- lookups

BaseQtAtom const* BaseQtAtom::findParent(QtAtomIdType id) const {
    for (BaseQtAtom const* a = this; a; a = a->m_parent)
        if (a->m_id == id) return a;
    return nullptr;
}

BaseQtAtom const* BaseQtAtom::findSibling(QtAtomIdType id, unsigned int n) const {
    if (!m_parent) return m_id == id && n == 0 ? this : nullptr;
    for (BaseQtAtom const* a = m_parent->m_child; a; a = a->m_sibling)
        if (a->m_id == id && n-- == 0) return a;
    return nullptr;
}

unsigned int BaseQtAtom::countSibling(QtAtomIdType id) const {
    if (!m_parent) return m_id == id ? 1 : 0;
    unsigned int count = 0;
    for (BaseQtAtom const* a = m_parent->m_child; a; a = a->m_sibling)
        if (a->m_id == id) ++count;
    return count;
}

unsigned int BaseQtAtom::countChildren() const {
    unsigned int count = 0;
    for (BaseQtAtom const* a = m_child; a; a = a->m_sibling) ++count;
    return count;
}

BaseQtAtom const* BaseQtAtom::findAbove(QtAtomIdType id, unsigned int n) const {
    for (BaseQtAtom const* level = m_parent; level; level = level->m_parent) {
        for (BaseQtAtom const* a = level->m_child; a; a = a->m_sibling)
            if (a != this && a->m_id == id && n-- == 0) return a;
    }
    return nullptr;
}

namespace {

// Walks a path of four-character ids joined by ".", as findAtom and countAtom read it. Returns the
// first atom matching the last component, or null.
BaseQtAtom const* walkPath(BaseQtAtom const* start, char const* path, QtAtomIdType& lastId) {
    if (!path) return nullptr;
    size_t length = strlen(path);
    QtAtomBuffer buffer(reinterpret_cast<unsigned char*>(const_cast<char*>(path)), static_cast<unsigned int>(length),
                        QtAtomBuffer::Full);
    BaseQtAtom const* current = start->getChild();
    while (buffer.nOccupied() >= 4 && current) {
        QtAtomIdType id = BaseQtAtom::decodeUint32(buffer);
        while (current && current->getId() != id) current = current->getSibling();
        if (!current) return nullptr;
        if (buffer.nOccupied() == 0) {
            lastId = id;
            return current;
        }
        if (*buffer.ptrData() != '.') return nullptr;
        buffer.removeInput(1);
        current = current->getChild();
    }
    return nullptr;
}

}  // namespace

BaseQtAtom const* BaseQtAtom::findAtom(char const* path, unsigned int n) const {
    QtAtomIdType id = 0;
    BaseQtAtom const* match = walkPath(this, path, id);
    while (match && n > 0) {
        match = match->m_sibling;
        while (match && match->m_id != id) match = match->m_sibling;
        --n;
    }
    return match;
}

unsigned int BaseQtAtom::countAtom(char const* path) const {
    QtAtomIdType id = 0;
    unsigned int count = 0;
    for (BaseQtAtom const* a = walkPath(this, path, id); a; a = a->m_sibling)
        if (a->m_id == id) ++count;
    return count;
}

QtRootContext const* BaseQtAtom::findRootContext() const {
    BaseQtAtom const* top = this;
    while (top->m_parent) top = top->m_parent;
    return dynamic_cast<QtRootContext const*>(top);
}

QtMovieContext const* BaseQtAtom::findMovieContext() const {
    for (BaseQtAtom const* a = this; a; a = a->m_parent)
        if (auto const* movie = dynamic_cast<QtMovieContext const*>(a)) return movie;
    return nullptr;
}

unsigned int BaseQtAtom::numGeneration() const {
    unsigned int n = 0;
    for (BaseQtAtom const* a = m_parent; a; a = a->m_parent) ++n;
    return n;
}

unsigned long BaseQtAtom::resetSize() const {
    unsigned long size = getFixedSize() + getVariableSize();
    if (size == m_size) return size;
    long delta = static_cast<long>(size) - static_cast<long>(m_size);
    write()->m_size = size;
    if (!m_decoded) addToAncestors(delta);
    return size;
}

unsigned int BaseQtAtom::getMovieTimeScale() const {
    auto const* header = dynamic_cast<QtTimeScaled const*>(findAbove(qtId("mvhd"), 0));
    return header ? header->getTimeScale() : 1;
}

unsigned int BaseQtAtom::getMediaTimeScale() const {
    for (BaseQtAtom const* a = m_parent; a; a = a->m_parent) {
        BaseQtAtom const* header = nullptr;
        if (a->m_id == qtId("trak"))
            header = a->findAtom("mdia.mdhd", 0);
        else if (a->m_id == qtId("mdia"))
            header = a->findAtom("mdhd", 0);
        else
            continue;
        auto const* scaled = dynamic_cast<QtTimeScaled const*>(header);
        return scaled ? scaled->getTimeScale() : 1;
    }
    return 1;
}

char const* BaseQtAtom::getMoviePath() const {
    QtRootContext const* root = findRootContext();
    AutoRefPtr<BasicFileIO> file = root ? root->getFp() : AutoRefPtr<BasicFileIO>();
    return file ? file->path() : "<no movie path>";
}

AutoPtr<char> BaseQtAtom::getAtomPath() const {
    std::vector<std::string> parts;
    for (BaseQtAtom const* a = this; a && a->m_id != 0; a = a->m_parent) {
        std::string part = QtIdName(a->m_id).render();
        if (a->m_parent && a->countSibling(a->m_id) > 1) {
            unsigned int index = 0;
            for (BaseQtAtom const* s = a->m_parent->m_child; s && s != a; s = s->m_sibling)
                if (s->m_id == a->m_id) ++index;
            part += FormatStr("[%d]", index).get();
        }
        parts.push_back(std::move(part));
    }
    std::string path;
    for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
        if (!path.empty()) path += ".";
        path += *it;
    }
    return copyText(path.c_str());
}

AutoPtr<char> BaseQtAtom::toString() const {
    // Two blanks per ancestor, the root included: an atom directly under the root is indented by two.
    int indent = static_cast<int>(2 * numGeneration());
    char const* openEnd = m_openEnded ? "[open-end]" : "";
    if (quicktimeDbg.on(QtDbgNoFileOffsets))
        return FormatStr("%*s%s: %ldb%s", indent, "", QtIdName(m_id).render(), static_cast<long>(m_size), openEnd);
    return FormatStr("%*s%s: %ldb%s@%ld", indent, "", QtIdName(m_id).render(), static_cast<long>(m_size), openEnd,
                     static_cast<long>(m_fileOffset));
}

AutoPtr<char> BaseQtAtom::toString(QtVersionAndFlags const& versionAndFlags) { return versionAndFlags.toString(); }

// ---------------------------------------------------------------- traversal

void BaseQtAtom::depthFirst(MethodCall const& call) const {
    BaseQtAtom const* current = this;
    while (current) {
        call.call(current);
        if (current->m_child) {
            current = current->m_child;
            continue;
        }
        while (current && !current->m_sibling) {
            current = current->m_parent;
            if (current == this) current = nullptr;
        }
        if (current) current = current->m_sibling;
    }
}

void BaseQtAtom::flushVirtualChildren() const { depthFirst(MethodCall(&BaseQtAtom::flushVirtualTable)); }

void BaseQtAtom::closeVirtualChildren(FileIoClientRec* agent) const {
    depthFirst(MethodCall(&BaseQtAtom::closeVirtualTable, agent));
}

void BaseQtAtom::closeAllChildren() const { depthFirst(MethodCall(&BaseQtAtom::closeFinal)); }

bool BaseQtAtom::hasVirtualChildren() const {
    if (hasVirtualTable()) return true;
    for (BaseQtAtom const* c = m_child; c; c = c->m_sibling)
        if (c->hasVirtualChildren()) return true;
    return false;
}

bool BaseQtAtom::hasDownstreamVirtualChildren() const {
    if (hasVirtualChildren()) return true;
    for (BaseQtAtom const* a = this; a; a = a->m_parent)
        for (BaseQtAtom const* s = a->m_sibling; s; s = s->m_sibling)
            if (s->hasVirtualChildren()) return true;
    return false;
}

bool BaseQtAtom::checkForDirty() const {
    bool reportAll = quicktimeDbg.on(QtDbgDirtyAtoms);
    bool found = false;
    std::vector<BaseQtAtom const*> stack{this};
    while (!stack.empty()) {
        BaseQtAtom const* a = stack.back();
        stack.pop_back();
        if (a->m_dirty) {
            if (!reportAll) return true;
            errorMsg("%s dirty\n", a->getAtomPath().get());
            found = true;
        }
        // Push children in reverse so the report follows file order.
        std::vector<BaseQtAtom const*> children;
        for (BaseQtAtom const* c = a->m_child; c; c = c->m_sibling) children.push_back(c);
        stack.insert(stack.end(), children.rbegin(), children.rend());
    }
    return found;
}

// ---------------------------------------------------------------- layout

QtTreeSize BaseQtAtom::recalcOffset(QtTreeSize const& in) const {
    QtTreeSize out = in;
    out.size = getFixedSize() + getVariableSize();
    if (m_child) {
        if (in.apply) setOffset(out.offset);
        unsigned long childOffset = out.offset + out.size;
        for (BaseQtAtom const* c = m_child; c; c = c->m_sibling) {
            QtTreeSize childIn(in.apply, 0, childOffset);
            QtTreeSize childOut = c->recalcOffset(childIn);
            out.size += childOut.size;
            childOffset += childOut.size;
            out.moved = out.moved || childOut.moved;
        }
    }
    if (out.offset != m_fileOffset && hasVirtualTable()) out.moved = true;
    if (quicktimeDbg.on(QtDbgMoveReason) && (out.moved || out.size != m_size)) {
        std::string verb = out.moved ? "move" : "change";
        if (in.apply)
            verb += "d";
        else
            verb = "will " + verb;
        debugMsg("%s %s: %ldb@%ld==>%ldb@%ld\n", getAtomPath().get(), verb.c_str(), static_cast<long>(m_size),
                 static_cast<long>(m_fileOffset), static_cast<long>(out.size), static_cast<long>(out.offset));
    }
    if (in.apply) setSizeAndOffset(out);
    return out;
}

bool BaseQtAtom::addMovieResizeNeeded(QtResizeReq::Type type) const {
    if (QtMovieContext const* movie = findMovieContext()) movie->addResizeNeeded(type);
    return false;
}

uint32_t BaseQtAtom::movieResizeNeeded() const {
    QtMovieContext const* movie = findMovieContext();
    return movie ? movie->getResizeNeeded().value() : 0;
}

AutoRefPtr<BasicFileIO> BaseQtAtom::getRootFp() const {
    QtRootContext const* root = findRootContext();
    return root ? root->getFp() : AutoRefPtr<BasicFileIO>();
}

int BaseQtAtom::getSizeAdvice() const {
    QtRootContext const* root = findRootContext();
    return root ? root->getSizeAdvice() : 2;
}

bool BaseQtAtom::adjustCache(CacheBytesType kind, int32_t delta) const {
    QtRootContext const* root = findRootContext();
    if (!logIfFalse(root != nullptr, "adjustCache", QT_UTIL_FILE, 1078)) return false;
    return root->adjustCache(kind, delta);
}

// ---------------------------------------------------------------- field codecs

unsigned char BaseQtAtom::decodeUint8(QtAtomBuffer& buffer) {
    unsigned char v = buffer.ptrData()[0];
    buffer.removeInput(1);
    return v;
}

unsigned short BaseQtAtom::decodeUint16(QtAtomBuffer& buffer) {
    unsigned short v = getBigEndian16(buffer.ptrData());
    buffer.removeInput(2);
    return v;
}

short BaseQtAtom::decodeInt16(QtAtomBuffer& buffer) { return static_cast<short>(decodeUint16(buffer)); }

unsigned int BaseQtAtom::decodeUint32(QtAtomBuffer& buffer) {
    unsigned int v = getBigEndian32(buffer.ptrData());
    buffer.removeInput(4);
    return v;
}

unsigned long BaseQtAtom::decodeUint64(QtAtomBuffer& buffer) {
    unsigned long high = decodeUint32(buffer);
    return (high << 32) | decodeUint32(buffer);
}

double BaseQtAtom::decodeFloat64(QtAtomBuffer& buffer) {
    unsigned long bits = decodeUint64(buffer);
    double value;
    memcpy(&value, &bits, sizeof value);
    return value;
}

char* BaseQtAtom::decodeString(QtAtomBuffer& buffer, unsigned int n) {
    if (n == 0) {
        unsigned int length = buffer.nOccupied() ? decodeUint8(buffer) : 0;
        n = length;
    }
    if (n > buffer.nOccupied()) n = buffer.nOccupied();
    char* text = new char[n + 1];
    memcpy(text, buffer.ptrData(), n);
    text[n] = 0;
    buffer.removeInput(n);
    return text;
}

void BaseQtAtom::encode(QtAtomBuffer& buffer, unsigned char value) { buffer.append(&value, 1); }

void BaseQtAtom::encode(QtAtomBuffer& buffer, unsigned short value) {
    unsigned char bytes[2];
    putBigEndian16(bytes, value);
    buffer.append(bytes, sizeof bytes);
}

void BaseQtAtom::encode(QtAtomBuffer& buffer, short value) { encode(buffer, static_cast<unsigned short>(value)); }

void BaseQtAtom::encode(QtAtomBuffer& buffer, unsigned int value) {
    unsigned char bytes[4];
    putBigEndian32(bytes, value);
    buffer.append(bytes, sizeof bytes);
}

void BaseQtAtom::encode(QtAtomBuffer& buffer, unsigned long value) {
    encode(buffer, static_cast<unsigned int>(value >> 32));
    encode(buffer, static_cast<unsigned int>(value));
}

void BaseQtAtom::encode(QtAtomBuffer& buffer, double value) {
    unsigned long bits;
    memcpy(&bits, &value, sizeof bits);
    encode(buffer, bits);
}

void BaseQtAtom::encode(QtAtomBuffer& buffer, char const* text) {
    // The length byte keeps only the low 8 bits of the length, but every character is written.
    size_t length = text ? strlen(text) : 0;
    encode(buffer, static_cast<unsigned char>(length));
    if (length) buffer.append(text, static_cast<unsigned int>(length));
}

unsigned int BaseQtAtom::swap(unsigned int value) { return __builtin_bswap32(value); }

unsigned long BaseQtAtom::swap(unsigned long value) { return __builtin_bswap64(value); }

// ---------------------------------------------------------------- times and strings

int64_t BaseQtAtom::fromMacTime(uint32_t seconds1904) {
    unsigned long seconds = seconds1904 < kMacEpochOffset ? kMacEpochOffset : seconds1904;
    return static_cast<int64_t>(seconds - kMacEpochOffset) * 1000000;
}

uint32_t BaseQtAtom::toMacTime(int64_t microseconds1970) {
    return static_cast<uint32_t>(microseconds1970 / 1000000 + static_cast<int64_t>(kMacEpochOffset));
}

uint32_t BaseQtAtom::getMacTimeNow() { return toMacTime(Clock::now() / 1000000 * 1000000); }

char* BaseQtAtom::copyString(char const* text) {
    if (!text) return nullptr;
    size_t n = strlen(text);
    char* copy = new char[n + 1];
    memcpy(copy, text, n + 1);
    return copy;
}

void BaseQtAtom::copyString(char*& target, char const* text) {
    delete[] target;
    target = copyString(text);
}
